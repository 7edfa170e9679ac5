// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <regex.h>
#include <utils/RefBase.h>
#include <utils/String8.h>

#include <cstddef>

namespace volume {

/**
 * A compiled pattern of POSIX basic syntax. Never changes; any thread.
 */
class Regex : public virtual android::RefBase {
  public:
    /** Aborts when @p pattern is null or no pattern. */
    explicit Regex(const char* pattern);

    Regex(const Regex&) = delete;
    Regex& operator=(const Regex&) = delete;

    /**
     * Looks for the pattern anywhere in @p string: the first occurrence, as long as it can be, counts. Aborts
     * when an argument is null.
     *
     * @param s_offset  where the occurrence begins, in bytes; written upon success only
     * @param e_offset  where it ends; written upon success only
     * @return whether there is one
     */
    bool match(const char* string, size_t* s_offset, size_t* e_offset) const;

  protected:
    ~Regex() override;

  private:
    const android::String8 mPatten;
    regex_t mCompiled;
};

}  // namespace volume
