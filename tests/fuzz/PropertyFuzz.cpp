// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Property files of any content.
 *
 * The first line of the input is a key, the second a value, the rest a file. Whatever they are: no finding of
 * a sanitizer, what was set comes back, and what was saved can be opened again.
 */
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "common/Property.h"
#include "common/PropertyLog.h"

namespace {

constexpr unsigned kValueSize = 1U << 20;

void require(bool holds) {
    if (!holds) {
        abort();
    }
}

/** A file of this process, in memory. */
const std::string& filePath() {
    static auto* const sPath = [] {
        char folder[] = "/dev/shm/property-fuzz-XXXXXX";
        require(mkdtemp(folder) != nullptr);
        auto* const path = new std::string(std::string(folder) + "/file.xml");
        atexit([] {
            unlink(filePath().c_str());
            rmdir(filePath().substr(0, filePath().rfind('/')).c_str());
        });
        // Refused files are what this is about: without a line for each.
        sPropertyLogSwitches.error = false;
        return path;
    }();
    return *sPath;
}

void write(const std::string& text) {
    FILE* const file = fopen(filePath().c_str(), "we");
    require(file != nullptr && fwrite(text.data(), 1, text.size(), file) == text.size());
    fclose(file);
}

std::string takeLine(std::string* text) {
    const size_t end = text->find('\n');
    const std::string line = text->substr(0, end);
    text->erase(0, end == std::string::npos ? text->size() : end + 1);
    return line;
}

bool get(Property* property, const char* key, std::string* value) {
    static char sBuffer[kValueSize];
    if (PropertyGet(property, key, sBuffer, kValueSize) != 0) {
        return false;
    }
    *value = sBuffer;
    return true;
}

/** Changes the file through one handle and looks at it through another. */
void change(const char* key, const char* value) {
    Property* const property = PropertyOpen(filePath().c_str(), kPropertyRead | kPropertyWrite);
    if (property == nullptr) {
        return;
    }
    std::string before;
    const bool wasThere = get(property, key, &before);
    const bool set = PropertySet(property, key, value, kPropertyAddMissing) == 0;
    std::string found;
    const bool isThere = get(property, key, &found);
    require(set ? isThere && found == value : isThere == wasThere && found == before);
    PropertyClose(property);

    Property* const again = PropertyOpen(filePath().c_str(), kPropertyRead);
    require(again != nullptr);
    std::string saved;
    require(get(again, key, &saved) == isThere && saved == found);
    PropertyClose(again);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string text(reinterpret_cast<const char*>(data), size);
    const std::string key = takeLine(&text);
    const std::string value = takeLine(&text);
    write(text);

    Property* const reader = PropertyOpen(filePath().c_str(), kPropertyRead);
    if (reader != nullptr) {
        std::string found;
        get(reader, "AoaFeature.Model", &found);
        PropertyClose(reader);
    }
    Property* const other = PropertyOpen("/dev/shm/missing.xml", kPropertyCreate);
    require(other != nullptr);
    char address[18];
    PropertyGetBluetoothId(other, filePath().c_str(), address, sizeof(address));
    PropertyClose(other);

    change(key.c_str(), value.c_str());
    return 0;
}
