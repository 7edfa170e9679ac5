// SPDX-License-Identifier: Apache-2.0
#include "volume/Regex.h"

#include <iterator>

#include "common/Assert.h"

namespace volume {

namespace {

constexpr char kConstructor[] = "volume::Regex::Regex(const char*)";
constexpr char kMatch[] = "bool volume::Regex::match(const char*, size_t*, size_t*)";
constexpr size_t kErrorSize = 64;

/** String8 does not take a null pointer. */
const char* checked(const char* pattern) {
    SERVICE_ASSERT_AT(pattern != nullptr, "mPatten.string()", "VolumeDetector", 61, kConstructor);
    return pattern;
}

}  // namespace

Regex::Regex(const char* pattern) : mPatten(checked(pattern)) {
    const int ret = regcomp(&mCompiled, mPatten.string(), 0);
    SERVICE_ASSERT_AT(!ret, "!ret", "VolumeDetector", 63, kConstructor);
}

Regex::~Regex() {
    regfree(&mCompiled);
}

bool Regex::match(const char* string, size_t* s_offset, size_t* e_offset) const {
    SERVICE_ASSERT_AT(string != nullptr, "string", "VolumeDetector", 74, kMatch);
    SERVICE_ASSERT_AT(s_offset != nullptr, "s_offset", "VolumeDetector", 75, kMatch);
    SERVICE_ASSERT_AT(e_offset != nullptr, "e_offset", "VolumeDetector", 76, kMatch);
    regmatch_t matches[2];
    const int ret = regexec(&mCompiled, string, std::size(matches), matches, 0);
    if (ret != 0) {
        // The text is there for a debugger; no match is the rule, not an error.
        char text[kErrorSize];
        regerror(ret, &mCompiled, text, sizeof(text));
        return false;
    }
    *s_offset = static_cast<size_t>(matches[0].rm_so);
    *e_offset = static_cast<size_t>(matches[0].rm_eo);
    return true;
}

}  // namespace volume
