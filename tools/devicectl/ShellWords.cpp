// SPDX-License-Identifier: Apache-2.0
#include "tools/devicectl/ShellWords.h"

#include <algorithm>

namespace devicectl {

namespace {

/** All that stands for itself in a bare word, besides letters, digits and what is beyond ASCII. */
constexpr std::string_view kPlain = "%+,-./:@_";
/** What a backslash quotes between double quotes. */
constexpr std::string_view kSpecialInDouble = "\"$`\\";

bool isBlank(char character) {
    return character == ' ' || character == '\t' || character == '\n';
}

bool isPlain(char character) {
    const bool letter = (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z');
    const bool digit = character >= '0' && character <= '9';
    return letter || digit || (static_cast<unsigned char>(character) & 0x80) != 0 ||
           kPlain.find(character) != std::string_view::npos;
}

/** Takes a line character by character. */
class Splitter {
  public:
    explicit Splitter(std::string_view breaks) : mBreaks(breaks) {}

    void take(char character) {
        if (mEscaped) {
            takeEscaped(character);
        } else if (mQuote == '\'') {
            takeIn(character, '\'');
        } else if (mQuote == '"') {
            takeInDouble(character);
        } else {
            takeBare(character);
        }
    }

    ShellLine end() {
        // A word that a quote ended, or that has quotes in the middle, is completed in no single manner.
        mLine.quoting = !mHasQuotes             ? Quoting::kBare
                        : mQuote == 0 || mMixed ? Quoting::kMixed
                        : mQuote == '"'         ? Quoting::kDouble
                                                : Quoting::kSingle;
        return mLine;
    }

  private:
    void takeEscaped(char character) {
        if (mQuote == '"' && kSpecialInDouble.find(character) == std::string_view::npos) {
            mLine.current += '\\';
        }
        mLine.current += character;
        mEscaped = false;
    }

    void takeIn(char character, char quote) {
        if (character == quote) {
            mQuote = 0;
        } else {
            mLine.current += character;
        }
    }

    void takeInDouble(char character) {
        if (character == '\\') {
            mEscaped = true;
        } else {
            takeIn(character, '"');
        }
    }

    void takeBare(char character) {
        if (isBlank(character)) {
            endWord();
            return;
        }
        if (character == '\\') {
            mEscaped = true;
        } else if (character == '\'' || character == '"') {
            mMixed = mHasQuotes || mHasBare;
            mHasQuotes = true;
            mQuote = character;
            return;
        } else {
            mLine.current += character;
            if (mBreaks.find(character) != std::string_view::npos) {
                mLine.broken = mLine.current.size();
            }
        }
        mHasBare = true;
        mMixed = mHasQuotes;
    }

    void endWord() {
        if (mHasBare || mHasQuotes) {
            mLine.words.push_back(mLine.current);
        }
        mLine.current.clear();
        mLine.broken = 0;
        mHasBare = mHasQuotes = mMixed = false;
    }

    const std::string_view mBreaks;
    ShellLine mLine;
    char mQuote = 0;  ///< the open one
    bool mEscaped = false;
    bool mHasQuotes = false;  ///< of the current word, as the two below
    bool mHasBare = false;
    bool mMixed = false;
};

std::string quotedBare(std::string_view text) {
    std::string out;
    for (const char character : text) {
        if (!isPlain(character)) {
            out += '\\';
        }
        out += character;
    }
    return out;
}

std::string quotedSingle(std::string_view text) {
    std::string out;
    for (const char character : text) {
        out += character == '\'' ? "'\\''" : std::string(1, character);
    }
    return out;
}

std::string quotedDouble(std::string_view text) {
    std::string out;
    for (const char character : text) {
        if (character == '!') {
            // A backslash would stay in the text, and without one an interactive shell recalls a line.
            out += "\"'!'\"";
            continue;
        }
        if (kSpecialInDouble.find(character) != std::string_view::npos) {
            out += '\\';
        }
        out += character;
    }
    return out;
}

}  // namespace

ShellLine splitShellLine(std::string_view line, std::string_view breaks) {
    Splitter splitter(breaks);
    std::for_each(line.begin(), line.end(), [&splitter](char character) { splitter.take(character); });
    return splitter.end();
}

std::optional<std::string> shellQuoted(std::string_view text, Quoting quoting) {
    switch (quoting) {
        case Quoting::kBare:
            return quotedBare(text);
        case Quoting::kSingle:
            return quotedSingle(text);
        case Quoting::kDouble:
            return quotedDouble(text);
        case Quoting::kMixed:
            break;
    }
    return std::nullopt;
}

}  // namespace devicectl
