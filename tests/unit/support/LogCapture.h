// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * What a test sees of the log.
 *
 * Linking the test_support library and using this class replaces the log functions of the whole process: the
 * lines of shared libraries are caught too. Every line also goes on to the real log, so that a failing test
 * shows it. A line is cut to 1023 bytes, as the real log does. The fatal line of an assertion is not caught,
 * since the process ends there: look for it with a death test.
 */

#include <chrono>
#include <cstddef>
#include <functional>
#include <iosfwd>
#include <string>
#include <vector>

/** One line of the log. */
struct LogLine {
    int priority;  //!< android_LogPriority
    std::string tag;
    std::string text;  //!< as formatted, trailing "\n" included

    bool operator==(const LogLine& other) const;
};

/** For the messages of failing tests. */
std::ostream& operator<<(std::ostream& stream, const LogLine& line);

/**
 * Records all lines, of all threads, from its construction to its destruction.
 *
 * Several may be alive at once; each gets every line. All operations: any thread.
 */
class LogCapture {
  public:
    using Predicate = std::function<bool(const LogLine&)>;

    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    /** The lines recorded since the start or the last take(), in order; they are forgotten here. */
    std::vector<LogLine> take();

    /** As take(), of one tag only; the other lines are forgotten too. */
    std::vector<LogLine> take(const std::string& tag);

    /** Counts the recorded lines for which @p matches holds; they stay recorded. */
    size_t count(const Predicate& matches) const;

    /** Waits until a recorded line, past or future, matches. @return false when @p limit passed first */
    bool waitFor(const Predicate& matches, std::chrono::milliseconds limit) const;

    /** As waitFor(Predicate), for one exact line. */
    bool waitFor(const LogLine& line, std::chrono::milliseconds limit) const;
};
