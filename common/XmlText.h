// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * @file
 * XML from files that are not trusted.
 */

#include <libxml/tree.h>

#include <cstddef>
#include <memory>
#include <string>

/** Largest file that is read or written, in bytes. */
constexpr size_t kMaxXmlSize = 8'000'000;

/**
 * Most attributes of one element. The parser compares each with all before it: a tag of 0.7 MB kept it busy
 * for 11 s.
 */
constexpr size_t kMaxXmlAttributes = 256;

/** Most namespaces of a document: each prefix is looked up in the list of all. */
constexpr size_t kMaxXmlNamespaces = 64;

/** Most tags, comments and the like, since each node takes some 120 bytes of memory. */
constexpr size_t kMaxXmlTags = 200'000;

struct XmlDocFree {
    void operator()(xmlDoc* document) const { xmlFreeDoc(document); }
};
using XmlDoc = std::unique_ptr<xmlDoc, XmlDocFree>;

/**
 * Parses a document: UTF-8, without a DTD of its own, within the limits above. Nothing but the text is read,
 * and nothing is logged. Any thread.
 *
 * @return null when the text is none
 */
XmlDoc parseXml(const std::string& text);

/**
 * Parses a file as parseXml() does.
 *
 * @return null also when it cannot be read, is no plain file, or is larger than kMaxXmlSize
 */
XmlDoc parseXmlFile(const char* path);

/**
 * The document as text, UTF-8, formatted.
 *
 * @param text  what parseXml() reads; as it was upon failure
 * @return false when parseXml() would refuse it, or there is no memory
 */
bool printXml(xmlDoc* document, std::string* text);
