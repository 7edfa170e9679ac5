// SPDX-License-Identifier: Apache-2.0
#include "common/Property.h"

#include <libxml/tree.h>
#include <libxml/xmlstring.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "common/Assert.h"
#include "common/FileReplacement.h"
#include "common/PropertyHandle.h"
#include "common/PropertyLog.h"
#include "common/XmlText.h"

namespace {

constexpr char kVersion[] = "1.0";
constexpr char kRoot[] = "property";
constexpr char kValue[] = "value";

constexpr char kBluetoothRoot[] = "Bluedroid";
constexpr char kBluetoothKey[] = "N1.N1.N2";
constexpr char kTag[] = "Tag";
constexpr char kAddress[] = "Address";

// The parser reads no deeper file, and the library's functions call themselves for each level.
constexpr long kMaxKeyParts = 250;

const xmlChar* xml(const char* text) {
    return reinterpret_cast<const xmlChar*>(text);
}

const char* text(const xmlChar* xml) {
    return reinterpret_cast<const char*>(xml);
}

struct XmlFree {
    void operator()(xmlChar* text) const { xmlFree(text); }
};
using XmlString = std::unique_ptr<xmlChar, XmlFree>;

class Lock {
  public:
    explicit Lock(pthread_mutex_t* mutex) : mMutex(mutex) { pthread_mutex_lock(mMutex); }
    ~Lock() { pthread_mutex_unlock(mMutex); }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

  private:
    pthread_mutex_t* const mMutex;
};

bool hasOption(int options, PropertyOption option) {
    return (options & option) != 0;
}

/** The folder whose rights count for a file; false for a path that names none. */
bool folderOf(const std::string& path, std::string* folder) {
    const auto slashes = std::count(path.begin(), path.end(), '/');
    if (slashes == 0) {
        propertyError("file path leave is 0");
        return false;
    }
    *folder = slashes == 1 ? "/" : path.substr(0, path.rfind('/'));
    return true;
}

XmlDoc openExisting(const char* filename, const char* folder, int options) {
    // Both lines name the folder; whoever reads them knows.
    if (hasOption(options, kPropertyRead) && access(filename, R_OK) != 0) {
        propertyError("process have no read permission, file path:%s", folder);
        return nullptr;
    }
    if (hasOption(options, kPropertyWrite) && access(filename, W_OK) != 0) {
        propertyError("process have no write permission, file path:%s", folder);
        return nullptr;
    }
    XmlDoc document = parseXmlFile(filename);
    if (document == nullptr) {
        propertyError("invaild xml file : parse fail :%s", filename);
    }
    return document;
}

XmlDoc createDocument() {
    XmlDoc document(xmlNewDoc(xml(kVersion)));
    if (document == nullptr) {
        propertyError("create doc fail");
        return nullptr;
    }
    // Without memory for it, the document has no root, which the caller finds.
    xmlDocSetRootElement(document.get(), xmlNewNode(nullptr, xml(kRoot)));
    return document;
}

XmlDoc createMissing(const char* filename, const char* folder, int options) {
    propertyWarning("file:%s  not exist", filename);
    if (!hasOption(options, kPropertyCreate)) {
        propertyWarning("have no create option,return null");
        return nullptr;
    }
    propertyInfo("have create file option");
    propertyInfo("dir path:%s", folder);
    if (hasOption(options, kPropertyRead)) {
        propertyInfo("check process read permission");
        if (access(folder, R_OK) != 0) {
            propertyError("process have no read permission, dir path:%s", folder);
            return nullptr;
        }
        propertyInfo("process have read permission");
    }
    if (hasOption(options, kPropertyWrite)) {
        propertyInfo("check process write permission");
        if (access(folder, W_OK) != 0) {
            propertyError("process have no write permission, dir path:%s", folder);
            return nullptr;
        }
        propertyInfo("process have write permission");
    }
    propertyInfo("create file:%s", filename);
    return createDocument();
}

/** The root element, if it has this name. */
xmlNode* rootOf(const XmlDoc& document, const char* name, const char* filename) {
    xmlNode* const root = xmlDocGetRootElement(document.get());
    if (root == nullptr) {
        propertyError("invaild xml file : have no root node");
        return nullptr;
    }
    if (xmlStrcasecmp(root->name, xml(name)) != 0) {
        propertyError("invaild xml file ,root node must be property : %s", filename);
        return nullptr;
    }
    return root;
}

/** Takes handles that are half-built, too. */
void freeProperty(Property* property) {
    if (property == nullptr) {
        propertyError("property is null");
        return;
    }
    xmlFreeDoc(property->document);
    free(property->path);
    if (property->mutex != nullptr) {
        pthread_mutex_destroy(property->mutex);
        free(property->mutex);
    } else {
        propertyWarning("mutex is null,maybe cause memory leak");
    }
    free(property);
}

Property* allocateProperty() {
    auto* const property = static_cast<Property*>(calloc(1, sizeof(Property)));
    if (property == nullptr) {
        propertyError("property property malloc fail");
        return nullptr;
    }
    property->mutex = static_cast<pthread_mutex_t*>(calloc(1, sizeof(pthread_mutex_t)));
    if (property->mutex == nullptr) {
        propertyError("mutex malloc fail");
        freeProperty(property);
        return nullptr;
    }
    pthread_mutex_init(property->mutex, nullptr);
    return property;
}

/** Takes the document. */
Property* createProperty(XmlDoc document, const char* filename, int options) {
    Property* const property = allocateProperty();
    if (property == nullptr) {
        propertyError("create property fail");
        return nullptr;
    }
    property->path = strdup(filename);
    if (property->path == nullptr) {
        // A handle that forgot where to save would lose what is set through it.
        propertyError("create property fail");
        freeProperty(property);
        return nullptr;
    }
    property->document = document.release();
    property->options = options;
    return property;
}

xmlNode* childOf(xmlNode* parent, const std::string& name) {
    for (xmlNode* child = parent->children; child != nullptr; child = child->next) {
        if (child->type == XML_ELEMENT_NODE && xmlStrcasecmp(child->name, xml(name.c_str())) == 0) {
            return child;
        }
    }
    return nullptr;
}

/** The element of a dotted key below @p node; with @p option 1 its missing elements are made. */
xmlNode* findNode(xmlNode* node, const char* key, int option) {
    for (const char* part = key; node != nullptr;) {
        const char* const dot = strchr(part, '.');
        const std::string name = dot != nullptr ? std::string(part, dot) : std::string(part);
        xmlNode* child = childOf(node, name);
        if (child == nullptr && option == kPropertyAddMissing) {
            propertyInfo("create new item: %s ", name.c_str());
            child = xmlNewChild(node, nullptr, xml(name.c_str()), nullptr);
        }
        if (dot == nullptr) {
            return child;
        }
        node = child;
        part = dot + 1;
    }
    return nullptr;
}

/** Whether a document that was saved as @p printed would give @p value back. */
bool readsBack(const std::string& printed, const char* key, const char* value) {
    const XmlDoc document = parseXml(printed);
    xmlNode* const root = document != nullptr ? xmlDocGetRootElement(document.get()) : nullptr;
    xmlNode* const node = root != nullptr ? findNode(root, key, 0) : nullptr;
    const XmlString found(node != nullptr ? xmlGetProp(node, xml(kValue)) : nullptr);
    return found != nullptr && strcmp(text(found.get()), value) == 0;
}

bool save(const Property& property, const std::string& printed) {
    if (replaceFile(property.path, printed) != 0) {
        propertyError("xml save file fail");
        return false;
    }
    return true;
}

/** With the handle's mutex held. */
int setLocked(Property* property, const char* key, const char* value, int option) {
    if (property->document == nullptr) {
        propertyError("xml doc is null\n");
        return -1;
    }
    if (xmlDocGetRootElement(property->document) == nullptr) {
        propertyError("xml have no root node\n");
        return -1;
    }
    // The change is made to a copy: what turns out not to be readable again must not stay in the handle.
    XmlDoc changed(xmlCopyDoc(property->document, 1));
    xmlNode* const root = changed != nullptr ? xmlDocGetRootElement(changed.get()) : nullptr;
    const bool tooDeep = std::count(key, key + strlen(key), '.') >= kMaxKeyParts;
    if (root == nullptr || (tooDeep && option == kPropertyAddMissing)) {
        propertyError("xml save file fail");
        return -1;
    }
    xmlNode* const node = findNode(root, key, option);
    if (node == nullptr) {
        propertyWarning("can not find node:%s\n", key);
        return -1;
    }
    std::string printed;
    if (xmlCheckUTF8(xml(value)) == 0 || xmlSetProp(node, xml(kValue), xml(value)) == nullptr ||
        !printXml(changed.get(), &printed) || !readsBack(printed, key, value)) {
        propertyError("xml save file fail");
        return -1;
    }
    xmlFreeDoc(property->document);
    property->document = changed.release();
    return save(*property, printed) ? 0 : -1;
}

/** With the handle's mutex held. */
int getLocked(const Property& property, const char* key, char* value, unsigned size) {
    if (property.document == nullptr) {
        propertyError("xml doc is null");
        return -1;
    }
    xmlNode* const root = xmlDocGetRootElement(property.document);
    if (root == nullptr) {
        propertyError("can not find root element");
        return -1;
    }
    xmlNode* const node = findNode(root, key, 0);
    if (node == nullptr) {
        propertyWarning("can not find node:%s\n", key);
        return -1;
    }
    const XmlString found(xmlGetProp(node, xml(kValue)));
    if (found == nullptr) {
        propertyWarning("can not find attribute:%s", key);
        return -1;
    }
    // One byte more than the text needs must be free.
    const size_t length = strlen(text(found.get()));
    if (length + 1 >= size) {
        return -1;
    }
    memcpy(value, found.get(), length + 1);
    return 0;
}

}  // namespace

Property* PropertyOpen(const char* filename, int options) {
    SERVICE_ASSERT_IN(filename != nullptr, "filename", "Property", "PropertyOpen");
    std::string folder;
    if (!folderOf(filename, &folder)) {
        propertyError("file path invaild");
        return nullptr;
    }
    XmlDoc document = access(filename, F_OK) == 0 ? openExisting(filename, folder.c_str(), options)
                                                  : createMissing(filename, folder.c_str(), options);
    if (document == nullptr || rootOf(document, kRoot, filename) == nullptr) {
        return nullptr;
    }
    return createProperty(std::move(document), filename, options);
}

void PropertyClose(Property* property) {
    SERVICE_ASSERT_IN(property != nullptr, "property", "Property", "PropertyClose");
    if (property->document != nullptr && property->path != nullptr &&
        hasOption(property->options, kPropertyWrite)) {
        std::string printed;
        if (!printXml(property->document, &printed)) {
            propertyError("xml save file fail");
        } else {
            save(*property, printed);
        }
    }
    freeProperty(property);
}

int PropertySet(Property* property, const char* key, const char* value, int option) {
    SERVICE_ASSERT_IN(property != nullptr, "property", "Property", "PropertySet");
    SERVICE_ASSERT_IN(key != nullptr, "key", "Property", "PropertySet");
    SERVICE_ASSERT_IN(value != nullptr, "value", "Property", "PropertySet");
    if (!hasOption(property->options, kPropertyWrite)) {
        propertyError("property need write permission");
        return -1;
    }
    propertyInfo("PropertySet:\n key:%s\n value:%s\n option:%d", key, value, option);
    const Lock lock(property->mutex);
    return setLocked(property, key, value, option);
}

int PropertyGet(Property* property, const char* key, char* value, unsigned size) {
    SERVICE_ASSERT_IN(property != nullptr, "property", "Property", "PropertyGet");
    SERVICE_ASSERT_IN(key != nullptr, "key", "Property", "PropertyGet");
    SERVICE_ASSERT_IN(value != nullptr, "value", "Property", "PropertyGet");
    if (!hasOption(property->options, kPropertyRead)) {
        propertyError("property need read permission");
        return -1;
    }
    propertyInfo("PropertyGet:\n key:%s", key);
    const Lock lock(property->mutex);
    return getLocked(*property, key, value, size);
}

int PropertyGetBluetoothId(Property* property, const char* btConfigFilePath, char* outStr, unsigned size) {
    SERVICE_ASSERT_IN(property != nullptr, "property", "Property", "PropertyGetBluetoothId");
    SERVICE_ASSERT_IN(btConfigFilePath != nullptr, "btConfigFilePath", "Property", "PropertyGetBluetoothId");
    SERVICE_ASSERT_IN(outStr != nullptr, "outStr", "Property", "PropertyGetBluetoothId");
    const XmlDoc document = parseXmlFile(btConfigFilePath);
    if (document == nullptr) {
        propertyError("invaild xml file : parse fail :%s", btConfigFilePath);
        return -1;
    }
    xmlNode* const root = rootOf(document, kBluetoothRoot, btConfigFilePath);
    if (root == nullptr) {
        return -1;
    }
    xmlNode* const node = findNode(root, kBluetoothKey, 0);
    if (node == nullptr) {
        propertyWarning("can not find node: N1.N1.N2");
        return -1;
    }
    const XmlString tag(xmlGetProp(node, xml(kTag)));
    if (tag == nullptr || xmlStrcasecmp(tag.get(), xml(kAddress)) != 0) {
        propertyWarning("can not find Tag=\"Address\"");
        return -1;
    }
    const XmlString content(xmlNodeGetContent(node));
    const size_t length = content != nullptr ? strlen(text(content.get())) : 0;
    if (length == 0) {
        propertyWarning("can not get Address content");
        return -1;
    }
    if (length + 1 >= size) {
        propertyWarning("dest buffer is too ...");
        return -1;
    }
    memcpy(outStr, content.get(), length + 1);
    propertyInfo("<N2 Tag=\"Address\" type=\"string\">%s</N2>", outStr);
    return 0;
}
