// SPDX-License-Identifier: Apache-2.0
#include "tests/unit/interfaces/InterfaceDocument.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <regex>

using android::IBinder;
using android::OK;
using android::Parcel;
using android::sp;
using android::String16;
using android::String8;

namespace {

constexpr char kTimesSign[] = " × ";

std::string trimmed(const std::string& text) {
    const size_t begin = text.find_first_not_of(' ');
    return begin == std::string::npos ? std::string()
                                      : text.substr(begin, text.find_last_not_of(' ') - begin + 1);
}

std::vector<std::string> split(const std::string& text, char separator) {
    std::vector<std::string> pieces;
    std::string::size_type begin = 0;
    for (;;) {
        const size_t end = text.find(separator, begin);
        pieces.push_back(trimmed(text.substr(begin, end - begin)));
        if (end == std::string::npos) {
            return pieces;
        }
        begin = end + 1;
    }
}

/** The cells of "| a | b |"; none for a line that is no row. */
std::vector<std::string> cellsOf(const std::string& line) {
    if (line.size() < 2 || line.front() != '|' || line.back() != '|') {
        return {};
    }
    return split(line.substr(1, line.size() - 2), '|');
}

/** What stands in backquotes. */
std::vector<std::string> codesOf(const std::string& cell) {
    static const auto& sQuoted = *new std::regex("`([^`]+)`");
    std::vector<std::string> found;
    for (std::sregex_iterator at(cell.begin(), cell.end(), sQuoted), end; at != end; ++at) {
        found.push_back((*at)[1]);
    }
    return found;
}

Field fieldOf(const std::string& text, const std::string& context) {
    const std::vector<std::string> words = split(text, ' ');
    static const char* const sTypes[] = {"int32", "bool", "String8", "CString", "binder"};
    if (words.size() == 2) {
        EXPECT_NE(std::end(sTypes), std::find(std::begin(sTypes), std::end(sTypes), words[0])) << context;
        return {words[0], words[1], ""};
    }
    // A record stands without a name of its own.
    EXPECT_EQ(1U, words.size()) << context;
    return {words[0], "", ""};
}

Item itemOf(std::string text, const std::string& context) {
    Item item;
    const size_t times = text.find(kTimesSign);
    if (times != std::string::npos) {
        item.times = text.substr(0, times);
        text = text.substr(times + sizeof(kTimesSign) - 1);
    }
    if (text.size() > 2 && text.front() == '[' && text.back() == ']') {
        item.optional = true;
        text = text.substr(1, text.size() - 2);
    }
    for (const std::string& field : split(text, ';')) {
        item.fields.push_back(fieldOf(field, context));
    }
    return item;
}

Items itemsOf(const std::string& cell, const std::string& context) {
    Items items;
    if (!cell.empty()) {
        for (const std::string& text : split(cell, ';')) {
            items.push_back(itemOf(text, context));
        }
    }
    return items;
}

bool isCounter(const Items& items, const std::string& name) {
    return std::any_of(items.begin(), items.end(), [&](const Item& item) { return item.times == name; });
}

/** Which of several has no meaning for some records, so texts of repeated fields are told in their order. */
std::string sortedText(std::vector<std::string> texts) {
    std::sort(texts.begin(), texts.end());
    std::string all;
    for (const std::string& text : texts) {
        all += "[" + text + "]";
    }
    return all;
}

void append(Values* values, const Field& field, const std::string& value) {
    values->byName += field.name + "=" + value + " ";
    values->byAccessor += field.accessor + "=" + value + " ";
}

}  // namespace

InterfaceDocument::InterfaceDocument(const std::string& path) {
    std::ifstream file(path);
    EXPECT_TRUE(file.is_open()) << path;
    std::string section;
    for (std::string line; std::getline(file, line);) {
        if (line.rfind("## ", 0) == 0) {
            section = line.substr(3);
        } else {
            parseLine(section, line);
        }
    }
}

void InterfaceDocument::parseLine(const std::string& section, const std::string& line) {
    static const std::string sRecord = "Record: ";
    static const auto& sInterface = *new std::regex("[a-z]+\\.[A-Z][A-Za-z]+");
    const std::vector<std::string> cells = cellsOf(line);
    if (cells.empty()) {
        return;
    }
    const bool isNumbered = cells[0].find_first_not_of("0123456789") == std::string::npos;
    if (section == "Finding a service" && codesOf(cells[0]).size() == 1) {
        ASSERT_EQ(3U, cells.size()) << line;
        mServices.push_back({codesOf(cells[0])[0], codesOf(cells[1]).at(0), codesOf(cells[2])});
    } else if (section == "Requests and replies" && cells[0].rfind("0x", 0) == 0) {
        mBaseCodes[cells.at(1)] = static_cast<uint32_t>(strtoul(cells[0].c_str(), nullptr, 16));
    } else if (section == "Requests and replies" && cells.size() == 2 && cells[1].rfind("-", 0) == 0) {
        mStatuses[cells[0]] = static_cast<int32_t>(strtol(cells[1].c_str(), nullptr, 10));
    } else if (section.rfind(sRecord, 0) == 0 && isNumbered) {
        ASSERT_EQ(4U, cells.size()) << line;
        Items& items = mRecords[section.substr(sRecord.size())];
        ASSERT_EQ(std::to_string(items.size() + 1), cells[0]) << line;
        // In a record one row is one item: what is repeated is repeated as a group.
        const size_t times = cells[1].find(kTimesSign);
        Item item;
        item.times = times != std::string::npos ? cells[1].substr(0, times) : "";
        const std::string fields =
            times != std::string::npos ? cells[1].substr(times + sizeof(kTimesSign) - 1) : cells[1];
        const std::vector<std::string> accessors = codesOf(cells[2]);
        for (const std::string& text : split(fields, ';')) {
            Field field = fieldOf(text, line);
            ASSERT_LT(item.fields.size(), accessors.size()) << line;
            field.accessor = accessors[item.fields.size()];
            item.fields.push_back(field);
        }
        ASSERT_EQ(item.fields.size(), accessors.size()) << line;
        items.push_back(item);
    } else if (std::regex_match(section, sInterface) && cells.size() == 4) {
        std::vector<Transaction>& rows = mInterfaces[section];
        if (cells[0] == "code") {
            ASSERT_TRUE(cells[3] == "reply" || cells[3] == "reply after the 0") << line;
            mLeadingZero = cells[3] != "reply";
        } else if (isNumbered) {
            Transaction row;
            row.leadingZero = mLeadingZero;
            row.code = static_cast<uint32_t>(strtoul(cells[0].c_str(), nullptr, 10));
            ASSERT_EQ(1U, codesOf(cells[1]).size()) << line;
            row.operation = codesOf(cells[1])[0];
            row.request = itemsOf(cells[2], line);
            row.reply = itemsOf(cells[3], line);
            rows.push_back(row);
        }
    }
}

int32_t InterfaceDocument::statusOf(const std::string& what) const {
    const auto row = std::find_if(mStatuses.begin(), mStatuses.end(),
                                  [&](const auto& each) { return each.first.rfind(what, 0) == 0; });
    EXPECT_NE(mStatuses.end(), row) << what;
    return row != mStatuses.end() ? row->second : 0;
}

const Transaction* InterfaceDocument::find(const std::string& interface, uint32_t code) const {
    const auto rows = mInterfaces.find(interface);
    if (rows != mInterfaces.end()) {
        for (const Transaction& row : rows->second) {
            if (row.code == code) {
                return &row;
            }
        }
    }
    return nullptr;
}

Values InterfaceDocument::writeSample(Parcel& parcel, const Items& items, const sp<IBinder>& object,
                                      std::string* arguments) const {
    Values values;
    write(parcel, items, object, arguments, &values);
    return values;
}

void InterfaceDocument::write(Parcel& parcel, const Items& items, const sp<IBinder>& object,
                              std::string* arguments, Values* values) const {
    std::map<std::string, int> counts;
    for (const Item& item : items) {
        const int times = item.times.empty() ? 1 : counts[item.times];
        EXPECT_GT(times, 0) << item.times << " counts what stands before it";
        std::vector<std::string> byName;
        std::vector<std::string> byAccessor;
        for (int i = 0; i < times; ++i) {
            Values group;
            for (const Field& field : item.fields) {
                const auto record = mRecords.find(field.type);
                if (record != mRecords.end()) {
                    write(parcel, record->second, object, nullptr, &group);
                    continue;
                }
                const bool counter = isCounter(items, field.name);
                const std::string value = writeField(parcel, field, counter, object);
                if (counter) {
                    counts[field.name] = atoi(value.c_str());
                }
                append(&group, field, value);
                if (arguments != nullptr && field.type != "binder") {
                    *arguments += " " + value;
                }
            }
            byName.push_back(group.byName);
            byAccessor.push_back(group.byAccessor);
        }
        values->byName += item.times.empty() ? byName[0] : sortedText(byName);
        values->byAccessor += item.times.empty() ? byAccessor[0] : sortedText(byAccessor);
    }
}

std::string InterfaceDocument::writeField(Parcel& parcel, const Field& field, bool counts,
                                          const sp<IBinder>& object) const {
    const int32_t sample = mNextSample++;
    if (field.type == "int32") {
        const int32_t number = !counts ? sample : field.name == "found" ? 1 : 2;
        EXPECT_EQ(OK, parcel.writeInt32(number));
        return std::to_string(number);
    }
    if (field.type == "bool") {
        EXPECT_EQ(OK, parcel.writeInt32(1));
        return "1";
    }
    if (field.type == "binder") {
        EXPECT_EQ(OK, parcel.writeStrongBinder(object));
        return "object";
    }
    const std::string text = field.name + "-" + std::to_string(sample);
    if (field.type == "String8") {
        EXPECT_EQ(OK, parcel.writeString8(String8(text.c_str())));
    } else {
        EXPECT_EQ("CString", field.type);
        EXPECT_EQ(OK, parcel.write(text.c_str(), text.size() + 1));
    }
    return text;
}

Values InterfaceDocument::read(const Parcel& parcel, const Items& items) const {
    Values values;
    if (!readItems(parcel, items, &values)) {
        values.byName += "(the parcel ends)";
    } else if (parcel.dataAvail() != 0) {
        values.byName += "(" + std::to_string(parcel.dataAvail()) + " bytes more)";
    }
    return values;
}

bool InterfaceDocument::readItems(const Parcel& parcel, const Items& items, Values* values) const {
    std::map<std::string, int32_t> numbers;
    for (const Item& item : items) {
        if (item.optional && parcel.dataAvail() == 0) {
            continue;
        }
        const int32_t times = item.times.empty() ? 1 : numbers[item.times];
        std::vector<std::string> byName;
        std::vector<std::string> byAccessor;
        for (int32_t i = 0; i < times; ++i) {
            Values group;
            for (const Field& field : item.fields) {
                if (!readField(parcel, field, &group, &numbers)) {
                    return false;
                }
            }
            byName.push_back(group.byName);
            byAccessor.push_back(group.byAccessor);
        }
        values->byName += item.times.empty() ? byName[0] : sortedText(byName);
        values->byAccessor += item.times.empty() ? byAccessor[0] : sortedText(byAccessor);
    }
    return true;
}

bool InterfaceDocument::readField(const Parcel& parcel, const Field& field, Values* values,
                                  std::map<std::string, int32_t>* numbers) const {
    const auto record = mRecords.find(field.type);
    if (record != mRecords.end()) {
        return readItems(parcel, record->second, values);
    }
    std::string value;
    if (field.type == "int32" || field.type == "bool") {
        int32_t number = 0;
        if (parcel.readInt32(&number) != OK) {
            return false;
        }
        (*numbers)[field.name] = number;
        value = std::to_string(number);
    } else if (field.type == "String8") {
        String8 text;
        if (parcel.readString8(&text) != OK) {
            return false;
        }
        value = text.string();
    } else if (field.type == "CString") {
        const char* const text = parcel.readCString();
        if (text == nullptr) {
            return false;
        }
        value = text;
    } else if (field.type == "binder") {
        if (parcel.readStrongBinder() == nullptr) {
            return false;
        }
        value = "object";
    } else {
        return false;
    }
    append(values, field, value);
    return true;
}
