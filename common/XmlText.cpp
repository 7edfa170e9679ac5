// SPDX-License-Identifier: Apache-2.0
#include "common/XmlText.h"

#include <fcntl.h>
#include <libxml/parser.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <mutex>
#include <string_view>

namespace {

constexpr char kEncoding[] = "UTF-8";
// No entity is replaced and no DTD is loaded unless an option says so. A declared encoding is ignored: the
// parser must read what was scanned.
constexpr int kOptions =
    XML_PARSE_NONET | XML_PARSE_IGNORE_ENC | XML_PARSE_NOERROR | XML_PARSE_NOWARNING | XML_PARSE_NOBLANKS;
constexpr std::string_view kByteOrderMark = "\xef\xbb\xbf";

bool isBlank(char character) {
    return character == ' ' || character == '\t' || character == '\n' || character == '\r';
}

/** Length in bytes of the first character of @p text, 0 when it is not UTF-8 or not a character of XML. */
size_t characterLength(std::string_view text) {
    const auto first = static_cast<unsigned char>(text[0]);
    if (first < 0x80) {
        return first >= 0x20 || isBlank(text[0]) ? 1 : 0;
    }
    const size_t length = first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : 2;
    if (first < 0xc2 || first > 0xf4 || text.size() < length) {
        return 0;
    }
    uint32_t code = first & (0xffU >> (length + 1));
    for (size_t i = 1; i < length; ++i) {
        const auto next = static_cast<unsigned char>(text[i]);
        if ((next & 0xc0) != 0x80) {
            return 0;
        }
        code = (code << 6) | (next & 0x3f);
    }
    constexpr uint32_t kLeast[] = {0, 0, 0x80, 0x800, 0x10000};
    const bool isSurrogate = code >= 0xd800 && code <= 0xdfff;
    const bool isLegal =
        code >= kLeast[length] && code <= 0x10ffff && !isSurrogate && code != 0xfffe && code != 0xffff;
    return isLegal ? length : 0;
}

/**
 * Keeps from the parser what would cost it more than the text is worth, and leaves every other judgement to
 * it.
 *
 * The parser does not stop at the first error, it goes on with the next "<" that it takes for a tag. So
 * nothing may hide a tag from this scan that the parser could find: a "<" anywhere but at the beginning of a
 * tag or inside of a comment or a CDATA section is refused, and so is any tag whose quotes are not where
 * attributes have them.
 */
class MarkupScan {
  public:
    explicit MarkupScan(std::string_view text) : mText(text) {}

    bool passes() {
        if (!isPlainText()) {
            return false;
        }
        while ((mPosition = mText.find('<', mPosition)) != std::string_view::npos) {
            if (++mTags > kMaxXmlTags || !skipMarkup()) {
                return false;
            }
        }
        return true;
    }

  private:
    /**
     * Whether every character may stand in a document: one that may not ends a comment for the parser, but
     * not for this scan.
     */
    bool isPlainText() const {
        std::string_view rest = mText;
        while (!rest.empty()) {
            const size_t length = characterLength(rest);
            if (length == 0) {
                return false;
            }
            rest.remove_prefix(length);
        }
        return true;
    }

    bool startsWith(std::string_view prefix) const {
        return mText.compare(mPosition, prefix.size(), prefix) == 0;
    }

    bool skipMarkup() {
        if (startsWith("<!--")) {
            return skipPast("<!--", "-->");
        }
        if (startsWith("<![CDATA[")) {
            return skipPast("<![CDATA[", "]]>");
        }
        if (startsWith("<?")) {
            return skipWithoutMarkup("?>", "");
        }
        if (startsWith("<!")) {
            // Entities and defaults of attributes are declared between brackets.
            return skipWithoutMarkup(">", "[");
        }
        if (startsWith("</")) {
            return skipWithoutMarkup(">", "\"'");
        }
        return skipStartTag();
    }

    bool skipPast(std::string_view begin, std::string_view end) {
        const size_t found = mText.find(end, mPosition + begin.size());
        if (found == std::string_view::npos) {
            return false;
        }
        mPosition = found + end.size();
        return true;
    }

    /** Past @p end, if no "<" and none of @p refused stands before it. */
    bool skipWithoutMarkup(std::string_view end, std::string_view refused) {
        const size_t begin = mPosition + 1;
        const size_t found = mText.find(end, begin);
        if (found == std::string_view::npos) {
            return false;
        }
        const std::string_view inside = mText.substr(begin, found - begin);
        mPosition = found + end.size();
        return inside.find('<') == std::string_view::npos &&
               inside.find_first_of(refused) == std::string_view::npos;
    }

    void skipBlanks() {
        while (mPosition < mText.size() && isBlank(mText[mPosition])) {
            ++mPosition;
        }
    }

    std::string_view takeName() {
        const size_t begin = mPosition;
        mPosition = std::min(mText.find_first_of(" \t\r\n=/<>\"'", begin), mText.size());
        return mText.substr(begin, mPosition - begin);
    }

    bool take(char character) {
        if (mPosition >= mText.size() || mText[mPosition] != character) {
            return false;
        }
        ++mPosition;
        return true;
    }

    bool skipValue() {
        if (mPosition >= mText.size() || (mText[mPosition] != '"' && mText[mPosition] != '\'')) {
            return false;
        }
        const size_t end = mText.find(mText[mPosition], mPosition + 1);
        if (end == std::string_view::npos ||
            mText.substr(mPosition, end - mPosition).find('<') != std::string_view::npos) {
            return false;
        }
        mPosition = end + 1;
        return true;
    }

    bool skipStartTag() {
        ++mPosition;
        if (takeName().empty()) {
            return false;
        }
        for (size_t attributes = 0;; ++attributes) {
            skipBlanks();
            if (take('>')) {
                return true;
            }
            if (take('/')) {
                return take('>');
            }
            const std::string_view name = takeName();
            if (name.substr(0, 5) == "xmlns" && ++mNamespaces > kMaxXmlNamespaces) {
                return false;
            }
            skipBlanks();
            if (name.empty() || attributes >= kMaxXmlAttributes || !take('=')) {
                return false;
            }
            skipBlanks();
            if (!skipValue()) {
                return false;
            }
        }
    }

    const std::string_view mText;
    size_t mPosition = 0;
    size_t mTags = 0;
    size_t mNamespaces = 0;
};

void initialiseParser() {
    static std::once_flag sOnce;
    std::call_once(sOnce, xmlInitParser);
}

bool readAll(int fd, std::string* text) {
    struct stat status = {};
    if (fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) {
        return false;
    }
    // One byte more than is allowed tells a file that grows meanwhile from one that ends there.
    char buffer[16384];
    while (text->size() <= kMaxXmlSize) {
        const ssize_t size = TEMP_FAILURE_RETRY(read(fd, buffer, sizeof(buffer)));
        if (size <= 0) {
            return size == 0;
        }
        text->append(buffer, static_cast<size_t>(size));
    }
    return false;
}

}  // namespace

XmlDoc parseXml(const std::string& text) {
    std::string_view content = text;
    if (content.substr(0, kByteOrderMark.size()) == kByteOrderMark) {
        content.remove_prefix(kByteOrderMark.size());
    }
    if (text.size() > kMaxXmlSize || !MarkupScan(content).passes()) {
        return nullptr;
    }
    initialiseParser();
    return XmlDoc(
        xmlReadMemory(content.data(), static_cast<int>(content.size()), nullptr, kEncoding, kOptions));
}

XmlDoc parseXmlFile(const char* path) {
    // O_NONBLOCK: a FIFO of this name must not wait for its writer.
    const int fd = open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        return nullptr;
    }
    std::string text;
    const bool read = readAll(fd, &text);
    close(fd);
    return read ? parseXml(text) : nullptr;
}

bool printXml(xmlDoc* document, std::string* text) {
    xmlChar* printed = nullptr;
    int size = 0;
    xmlDocDumpFormatMemoryEnc(document, &printed, &size, kEncoding, 1);
    if (printed == nullptr) {
        return false;
    }
    std::string result(reinterpret_cast<const char*>(printed), static_cast<size_t>(size));
    xmlFree(printed);
    if (parseXml(result) == nullptr) {
        return false;
    }
    text->swap(result);
    return true;
}
