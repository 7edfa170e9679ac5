// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * Named string properties in an XML file.
 *
 * A property has a dotted key, as "AoaFeature.Model": element "Model" in element "AoaFeature" in the root
 * element "property". Its text is the attribute "value" of the innermost element. Elements are found whatever
 * their case, and the first of several counts.
 *
 * Files are not trusted: no DTD of the file's own and nothing outside of the file is read, and a file that is
 * larger than a property file can be (8,000,000 bytes, 200,000 tags, 256 attributes of one element, 64
 * namespaces) is refused. What is written can always be read again.
 *
 * A handle belongs to who opened it. Reading and writing through one handle: any thread; closing: no other
 * thread may use the handle any more. Two handles of one file know nothing of each other: the last save wins.
 *
 * Null pointers abort.
 */

/** An open property file. */
struct Property;

/** What a handle is for: a bit set, by the values of the operations' contract. */
enum PropertyOption : int {
    kPropertyRead = 0x1,
    kPropertyWrite = 0x10,
    kPropertyCreate = 0x100,  //!< without the file, begin with an empty one; it is written by the first save
};

/** For PropertySet(): make the elements of the key that are missing. */
constexpr int kPropertyAddMissing = 1;

/**
 * Opens a property file.
 *
 * @param filename  must hold a "/"
 * @param options   of PropertyOption
 * @return the handle, for PropertyClose(); null, with an error line unless the file is merely missing, when
 *         there is none and it is not to be created, when this process lacks a right that the options ask
 *         for, or when it is no property file
 */
Property* PropertyOpen(const char* filename, int options);

/** Saves the file, if the handle is for writing, and frees the handle, whether or not that worked. */
void PropertyClose(Property* property);

/**
 * Changes one property and saves the file at once.
 *
 * A save replaces the file as a whole where its folder permits: the former content is there until the new one
 * is complete, and owner, mode and symbolic links stay. Elsewhere it is written in place.
 *
 * @param value   UTF-8 text
 * @param option  kPropertyAddMissing, or anything else to change what is there
 * @return 0, or -1: the handle is not for writing, there is no such property, or the file cannot be saved.
 *         A key or value that XML cannot hold changes nothing; after any other failure to save, the handle
 *         has the new value and saves it with the next chance.
 */
int PropertySet(Property* property, const char* key, const char* value, int option);

/**
 * Reads one property.
 *
 * @param value  room for @p size bytes; as it was upon failure
 * @param size   must be larger than the text with its NUL: one byte always stays free
 * @return 0, or -1: the handle is not for reading, there is no such property, or no room
 */
int PropertyGet(Property* property, const char* key, char* value, unsigned size);

/**
 * Reads the Bluetooth adapter's address from a Bluedroid configuration file: the text of the first "N2" of
 * the first "N1" of the first "N1", if its "Tag" is "Address".
 *
 * @param property          a handle, of any file
 * @param btConfigFilePath  the file that is read
 * @param outStr            room for @p size bytes; as it was upon failure
 * @param size              as for PropertyGet()
 * @return 0 or -1
 */
int PropertyGetBluetoothId(Property* property, const char* btConfigFilePath, char* outStr, unsigned size);
