// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "Uevent"

#include "common/Uevent.h"

#include <log/log.h>

#include <cstdlib>
#include <cstring>

#include "common/Assert.h"

namespace {

constexpr char kActionPrefix[] = "ACTION=";
constexpr char kSeqnumPrefix[] = "SEQNUM=";
constexpr char kSubsystemPrefix[] = "SUBSYSTEM=";

struct ActionWord {
    const char* word;
    Uevent::Action action;
};

constexpr ActionWord kActionWords[] = {
    {"add", Uevent::kActionAdd},   {"remove", Uevent::kActionRemove}, {"change", Uevent::kActionChange},
    {"move", Uevent::kActionMove}, {"online", Uevent::kActionOnline}, {"offline", Uevent::kActionOffline},
};

/** The text after @p prefix, or null when the token, which ends before @p end, does not begin with it. */
template <size_t SIZE>
const char* afterPrefix(const char* token, const char* end, const char (&prefix)[SIZE]) {
    constexpr size_t kLength = SIZE - 1;
    if (static_cast<size_t>(end - token) < kLength || memcmp(token, prefix, kLength) != 0) {
        return nullptr;
    }
    return token + kLength;
}

/** What printf makes of a null string, without relying on it. */
const char* printable(const char* text) {
    return text != nullptr ? text : "(null)";
}

}  // namespace

void Uevent::Free::operator()(char* block) const {
    free(block);
}

Uevent::Uevent() {
    clear();
}

Uevent::Uevent(char* buffer, size_t length) {
    if (!decode(buffer, length)) {
        ALOGE("uevent decode fail");
    }
}

bool Uevent::decode(char* buffer, size_t length) {
    clear();
    if (length == 0 || !parse(buffer, length)) {
        return false;
    }
    keepText(buffer, length);
    return true;
}

void Uevent::clear() {
    mSeqnum = 0;
    mPath = nullptr;
    mAction = kActionNone;
    mSubsystem = nullptr;
    memset(mParamNames, 0, sizeof(mParamNames));
    memset(mParamValues, 0, sizeof(mParamValues));
    mParamSize = 0;
    mText.reset();
}

// The strings point into the caller's buffer until keepText() moves them.
bool Uevent::parse(char* buffer, size_t length) {
    char* const end = buffer + length;
    end[-1] = '\0';

    char* const at = strchr(buffer, '@');
    if (at == nullptr) {
        return false;
    }
    mPath = at + 1;

    char* token = at + strlen(at) + 1;
    while (token < end) {
        if (const char* const action = afterPrefix(token, end, kActionPrefix)) {
            for (const ActionWord& entry : kActionWords) {
                if (strcmp(action, entry.word) == 0) {
                    mAction = entry.action;
                    break;
                }
            }
        } else if (const char* const seqnum = afterPrefix(token, end, kSeqnumPrefix)) {
            mSeqnum = atoi(seqnum);
        } else if (const char* const subsystem = afterPrefix(token, end, kSubsystemPrefix)) {
            mSubsystem = subsystem;
        } else if (mParamSize < kMaxParams) {
            token = parseProperty(token, end);
            if (token == nullptr) {
                break;
            }
        }
        token += strlen(token) + 1;
    }
    return true;
}

/** Returns the property's value, or null when there is no "=" left: then no property is left either. */
char* Uevent::parseProperty(char* token, char* end) {
    char* const equals = static_cast<char*>(memchr(token, '=', static_cast<size_t>(end - token)));
    if (equals == nullptr) {
        return nullptr;
    }
    *equals = '\0';
    mParamNames[mParamSize] = token;
    mParamValues[mParamSize] = equals + 1;
    ++mParamSize;
    return equals + 1;
}

void Uevent::keepText(const char* buffer, size_t length) {
    mText.reset(static_cast<char*>(malloc(length)));
    LOG_ALWAYS_FATAL_IF(mText == nullptr, "out of memory for a uevent of %zu bytes", length);
    char* const text = mText.get();
    memcpy(text, buffer, length);

    const auto moved = [text, buffer](const char* string) { return text + (string - buffer); };
    mPath = moved(mPath);
    if (mSubsystem != nullptr) {
        mSubsystem = moved(mSubsystem);
    }
    for (int i = 0; i < mParamSize; ++i) {
        mParamNames[i] = moved(mParamNames[i]);
        mParamValues[i] = moved(mParamValues[i]);
    }
}

const char* Uevent::paramName(int index) const {
    SERVICE_ASSERT_AT(index >= 0 && index < mParamSize, "index < mParamSize", "Uevent", 59,
                      "const char* Uevent::paramName(int)");
    return mParamNames[index];
}

const char* Uevent::paramValue(int index) const {
    SERVICE_ASSERT_AT(index >= 0 && index < mParamSize, "index < mParamSize", "Uevent", 63,
                      "const char* Uevent::paramValue(int)");
    return mParamValues[index];
}

const char* Uevent::FindParam(const char* key) const {
    const size_t length = strlen(key);
    for (int i = 0; i < mParamSize; ++i) {
        if (strncmp(mParamNames[i], key, length) == 0) {
            return mParamValues[i];
        }
    }
    ALOGE("FindParam(): Parameter '%s' not found", key);
    return nullptr;
}

void Uevent::dump() const {
    ALOGI("[%10s] [%10s]\n", "SUBSYSTEM", printable(mSubsystem));
    ALOGI("[%10s] [%10d]\n", "ACTION", mAction);
    ALOGI("[%10s] [%10d]\n", "SEQNUM", mSeqnum);
    ALOGI("[%10s] [%10s]\n", "DEVPATH", printable(mPath));
    for (int i = 0; i < mParamSize; ++i) {
        ALOGI("[%10s] [%10s]\n", mParamNames[i], mParamValues[i]);
    }
}
