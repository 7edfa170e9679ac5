// SPDX-License-Identifier: Apache-2.0
#include "tools/devicectl/Completion.h"

#include <algorithm>
#include <optional>

#include "tools/devicectl/CommandLine.h"
#include "tools/devicectl/ShellWords.h"
#include "tools/devicectl/Text.h"

namespace devicectl {

namespace {

/** Whether it can stand on a line: neither a control character nor bytes that are no text. */
bool isShowable(const std::string& text) {
    const bool oneLine = text.find_first_of("\n\t") == std::string::npos;
    return !text.empty() && oneLine && escapeText(text) == text;
}

bool beginsWith(const std::string& text, const std::string& beginning) {
    return text.compare(0, beginning.size(), beginning) == 0;
}

}  // namespace

std::vector<std::string> candidatesFor(const std::vector<std::string>& words, const std::string& current,
                                       const AskLive& ask) {
    const Choices choices = choicesAfter(words, current);
    std::vector<std::string> all = choices.words;
    if (choices.live != LiveKind::kNone) {
        const std::vector<std::string> live = ask(choices.live);
        all.insert(all.end(), live.begin(), live.end());
    }
    std::vector<std::string> candidates;
    for (const std::string& word : all) {
        const bool isNew = std::find(candidates.begin(), candidates.end(), word) == candidates.end();
        if (isNew && beginsWith(word, current) && isShowable(word)) {
            candidates.push_back(word);
        }
    }
    return candidates;
}

std::vector<std::string> bashReplies(std::string_view line, std::string_view wordBreaks, const AskLive& ask) {
    ShellLine split = splitShellLine(line, wordBreaks);
    if (split.words.empty()) {
        return {};
    }
    split.words.erase(split.words.begin());
    // An option's value may be joined to it.
    std::string prefix;
    const size_t equals = split.current.find('=');
    if (split.quoting == Quoting::kBare && beginsWith(split.current, "--") && equals != std::string::npos) {
        prefix = split.current.substr(0, equals + 1);
        split.words.push_back(split.current.substr(0, equals));
        split.current.erase(0, equals + 1);
    }
    std::vector<std::string> replies;
    for (const std::string& candidate : candidatesFor(split.words, split.current, ask)) {
        const std::string whole = prefix + candidate;
        const std::optional<std::string> reply = shellQuoted(whole.substr(split.broken), split.quoting);
        if (reply) {
            replies.push_back(*reply);
        }
    }
    return replies;
}

}  // namespace devicectl
