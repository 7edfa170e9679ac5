// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * docs/interfaces.md as a program sees it: interfaces, their transactions, the records, and the values that
 * travel, written and read by what the tables say and by nothing else.
 */

#include <binder/Parcel.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

/** One value: "int32 port". */
struct Field {
    std::string type;
    std::string name;
    /** The record's operation that gives it; empty in a transaction. */
    std::string accessor;
};

/** Fields that stand once, as often as an earlier field says, or perhaps. */
struct Item {
    /** Name of the field that counts; empty for once. */
    std::string times;
    bool optional = false;
    std::vector<Field> fields;
};

using Items = std::vector<Item>;

/** A row of an interface's table. */
struct Transaction {
    uint32_t code = 0;
    std::string operation;
    Items request;
    Items reply;
    /** Whether the reply begins with the services' 0. */
    bool leadingZero = false;
};

/** A row of the table of services. */
struct ServiceRow {
    std::string name;
    std::string interface;
    std::vector<std::string> notifiers;
};

/** The values of a parcel, as text: by the fields' names, and by the accessors of a record. */
struct Values {
    std::string byName;
    std::string byAccessor;

    bool operator==(const Values& other) const {
        return byName == other.byName && byAccessor == other.byAccessor;
    }
};

/** The parsed document. What it cannot make sense of is a failure of the test that reads it. */
class InterfaceDocument {
  public:
    /** Reads the document at @p path. */
    explicit InterfaceDocument(const std::string& path);

    const std::vector<ServiceRow>& services() const { return mServices; }
    const std::map<std::string, std::vector<Transaction>>& interfaces() const { return mInterfaces; }
    const std::map<std::string, Items>& records() const { return mRecords; }
    /** Codes of the base operations by name. */
    const std::map<std::string, uint32_t>& baseCodes() const { return mBaseCodes; }

    /** The status of the row that begins with @p what in the table of what is wrong. */
    int32_t statusOf(const std::string& what) const;

    /** The row of @p code, or null. */
    const Transaction* find(const std::string& interface, uint32_t code) const;

    /**
     * Writes a value of its own for each field; optional ones are there, counters say 2 ("found": 1).
     * @param object what stands in fields of type binder
     * @param arguments if not null, receives the values alone, each behind a blank
     */
    Values writeSample(android::Parcel& parcel, const Items& items,
                       const android::sp<android::IBinder>& object = nullptr,
                       std::string* arguments = nullptr) const;

    /** Reads what @p items say, to the parcel's end. What is missing or left over shows in the result. */
    Values read(const android::Parcel& parcel, const Items& items) const;

  private:
    void parseLine(const std::string& section, const std::string& line);
    void write(android::Parcel& parcel, const Items& items, const android::sp<android::IBinder>& object,
               std::string* arguments, Values* values) const;
    std::string writeField(android::Parcel& parcel, const Field& field, bool counts,
                           const android::sp<android::IBinder>& object) const;
    bool readItems(const android::Parcel& parcel, const Items& items, Values* values) const;
    bool readField(const android::Parcel& parcel, const Field& field, Values* values,
                   std::map<std::string, int32_t>* numbers) const;

    std::vector<ServiceRow> mServices;
    std::map<std::string, std::vector<Transaction>> mInterfaces;
    std::map<std::string, Items> mRecords;
    std::map<std::string, uint32_t> mBaseCodes;
    std::map<std::string, int32_t> mStatuses;
    /** What the head of the table says that is being read. */
    bool mLeadingZero = false;
    /** Makes every sample differ from the others. */
    mutable int32_t mNextSample = 1000;
};
