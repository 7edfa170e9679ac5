// SPDX-License-Identifier: Apache-2.0
#include "tools/devicectl/CommandChoices.h"

#include <algorithm>

namespace devicectl {

namespace {

using Arguments = std::vector<const CLI::Option*>;

bool takesValue(const CLI::Option& option) {
    return option.get_items_expected_max() > 0;
}

std::string longName(const CLI::Option& option) {
    return option.get_lnames().empty() ? "" : "--" + option.get_lnames().front();
}

/** The way through the commands: where the words have led so far. */
class Walk {
  public:
    explicit Walk(const CLI::App& app) : mRoot(app), mCommand(&app) {}

    void take(const std::string& word) {
        if (mAwaited != nullptr) {
            mAwaited = nullptr;
        } else if (!mOnlyArguments && word == "--") {
            mOnlyArguments = true;
        } else if (!mOnlyArguments && word.size() > 1 && word[0] == '-') {
            const CLI::Option* const option = findOption(word);
            mAwaited = option != nullptr && takesValue(*option) ? option : nullptr;
        } else if (const CLI::App* const command = findCommand(word)) {
            mCommand = command;
            mArguments = 0;
        } else {
            ++mArguments;
        }
    }

    Choices choices(const ChoiceTable& table, const std::string& current) const {
        if (mAwaited != nullptr) {
            return valuesOf(table, mAwaited);
        }
        if (!mOnlyArguments && !current.empty() && current[0] == '-') {
            return {options(), LiveKind::kNone};
        }
        const Arguments arguments = argumentsOf(*mCommand);
        if (mArguments < arguments.size()) {
            return valuesOf(table, arguments[mArguments]);
        }
        if (!arguments.empty() && arguments.back()->get_items_expected_max() > 1) {
            return valuesOf(table, arguments.back());
        }
        return {commands(), LiveKind::kNone};
    }

  private:
    static Choices valuesOf(const ChoiceTable& table, const CLI::Option* option) {
        const auto found = table.find(option);
        return found != table.end() ? found->second : Choices();
    }

    static Arguments argumentsOf(const CLI::App& command) {
        return command.get_options([](const CLI::Option* option) { return option->get_positional(); });
    }

    const CLI::Option* findOption(const std::string& word) const {
        for (const CLI::App* const app : {mCommand, &mRoot}) {
            for (const CLI::Option* const option : app->get_options({})) {
                if (longName(*option) == word) {
                    return option;
                }
            }
        }
        return nullptr;
    }

    const CLI::App* findCommand(const std::string& word) const {
        for (const CLI::App* const command : mCommand->get_subcommands({})) {
            if (command->get_name() == word) {
                return command;
            }
        }
        return nullptr;
    }

    std::vector<std::string> options() const {
        std::vector<std::string> names;
        for (const CLI::App* const app : {mCommand, &mRoot}) {
            for (const CLI::Option* const option : app->get_options({})) {
                const std::string name = longName(*option);
                if (!name.empty() && std::find(names.begin(), names.end(), name) == names.end()) {
                    names.push_back(name);
                }
            }
        }
        return names;
    }

    std::vector<std::string> commands() const {
        std::vector<std::string> names;
        for (const CLI::App* const command : mCommand->get_subcommands({})) {
            names.push_back(command->get_name());
        }
        return names;
    }

    const CLI::App& mRoot;
    const CLI::App* mCommand;
    const CLI::Option* mAwaited = nullptr;  ///< whose value comes next
    size_t mArguments = 0;                  ///< of the command, taken so far
    bool mOnlyArguments = false;            ///< what follows is never an option
};

}  // namespace

Choices findChoices(const CLI::App& app, const ChoiceTable& table, const std::vector<std::string>& words,
                    const std::string& current) {
    Walk walk(app);
    for (const std::string& word : words) {
        walk.take(word);
    }
    return walk.choices(table, current);
}

}  // namespace devicectl
