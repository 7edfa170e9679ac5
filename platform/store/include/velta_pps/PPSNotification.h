// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * What is handed to the store: a named record of attributes, and what to do with it.
 */

#include <cstdint>
#include <string>
#include <vector>

namespace velta_pps {

/** One attribute of a record. Any text; the store escapes what it must. */
struct PPSAttribute {
    std::string name;
    std::string value;
};

/** A record. */
struct PPSObject {
    /** Name of the object, the same for whoever publishes it and whoever follows it. */
    std::string name;
    /** In the order in which readers see them. */
    std::vector<PPSAttribute> attributes;
};

/** A change of the store. */
struct PPSNotification {
    /** Values of operation. They are the store's contract. */
    enum Operation : int32_t {
        kPublish = 0,  //!< publish the record, or replace the one of this name
        kRemove = 1,   //!< withdraw the record of this name; its attributes are not looked at
    };
    /** No operation. The store's contract sets none at construction: always assign one. */
    static constexpr int32_t kUnset = -1;

    int32_t operation = kUnset;
    PPSObject object;
};

}  // namespace velta_pps
