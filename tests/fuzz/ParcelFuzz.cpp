// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Hostile requests into the device service and a client's notifier, hostile replies into the service's proxy,
 * and the operations of a parcel in any order.
 */

#include <binder/IPCThreadState.h>
#include <binder/Parcel.h>
#include <fcntl.h>
#include <fuzzer/FuzzedDataProvider.h>
#include <linux/android/binder.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "device/BnDeviceManager.h"
#include "device/BnDeviceManagerNotifier.h"
#include "device/BpDeviceManager.h"
#include "device/Device.h"
#include "device/DeviceParcel.h"
#include "tests/unit/support/LoopbackBinder.h"

using android::BBinder;
using android::IBinder;
using android::interface_cast;
using android::OK;
using android::Parcel;
using android::sp;
using android::status_t;
using android::String16;
using android::String8;
using android::Vector;
using device::BnDeviceManager;
using device::BnDeviceManagerNotifier;
using device::DeviceItf;
using device::IDeviceManager;
using device::IDeviceManagerNotifier;

namespace {

constexpr size_t kSteps = 64;
constexpr size_t kLongestText = 64;

/** Ends the run, which libFuzzer reports with the input. */
void require(bool holds) {
    if (!holds) {
        abort();
    }
}

/** Where dumps go. */
int nullDevice() {
    static const int sFd = open("/dev/null", O_WRONLY | O_CLOEXEC);
    require(sFd >= 0);
    return sFd;
}

sp<DeviceItf> someDevice() {
    const sp<DeviceItf> device = new device::Device();
    device->setPath("/devices/platform/made/up");
    device->setSubsystem("block");
    device->addParam("DEVNAME", "up");
    device->addParam("DEVTYPE", "disk");
    return device;
}

/** A core with one device, whatever it is asked for. */
class Core : public device::DeviceManagerImplItf {
  public:
    int startup() override { return 0; }
    int shutdown() override { return 0; }
    int setNotifier(const sp<device::DeviceManagerNotifierItf>& /*notifier*/) override { return 0; }
    sp<DeviceItf> getDevice(const String8& subsystem, const String8& /*devName*/) override {
        return subsystem == "block" ? someDevice() : nullptr;
    }
    Vector<sp<DeviceItf>> getDevices(const String8& path) override {
        Vector<sp<DeviceItf>> devices;
        for (size_t i = 0; i < path.size() % 4; ++i) {
            devices.add(someDevice());
        }
        return devices;
    }
    String8 getDevicePath(int type, int id) override { return String8::format("/devices/%d/%d", type, id); }
    int dump(const Vector<String16>& args, String8& result) override {
        for (const String16& argument : args) {
            result.append(String8(argument));
        }
        return 0;
    }
};

/** Reads all of every record that arrives: the sanitizer sees what lies outside. */
class Listener : public device::DeviceManagerNotifierItf {
  public:
    int32_t onEvent(int32_t event, int32_t value) override { return event ^ value; }
    int32_t onDeviceAdded(const sp<DeviceItf>& device) override { return lengthOf(device); }
    int32_t onDeviceRemoved(const sp<DeviceItf>& device) override { return lengthOf(device); }

    static int32_t lengthOf(const sp<DeviceItf>& device) {
        require(device != nullptr);
        size_t length = strlen(device->getPath().string()) + strlen(device->getSubsystem().string());
        for (size_t i = 0; i < device->getParamSize(); ++i) {
            length += strlen(device->getParamName(i).string()) + strlen(device->getParamValue(i).string());
        }
        return static_cast<int32_t>(length);
    }
};

/** Writes what the input says, of every kind that travels, also in places where nobody expects it. */
void writeValue(FuzzedDataProvider& input, Parcel& parcel) {
    switch (input.ConsumeIntegralInRange<int>(0, 9)) {
        case 0:
            parcel.writeInt32(input.ConsumeIntegral<int32_t>());
            break;
        case 1:
            parcel.writeInt64(input.ConsumeIntegral<int64_t>());
            break;
        case 2:
            parcel.writeString8(String8(input.ConsumeRandomLengthString(kLongestText).c_str()));
            break;
        case 3:
            parcel.writeString16(String16(input.ConsumeRandomLengthString(kLongestText).c_str()));
            break;
        case 4:
            parcel.writeCString(input.ConsumeRandomLengthString(kLongestText).c_str());
            break;
        case 5:
            parcel.writeStrongBinder(input.ConsumeBool() ? sp<IBinder>(new BBinder()) : nullptr);
            break;
        case 6:
            parcel.writeDupFileDescriptor(nullDevice());
            break;
        case 7: {
            // The bytes of an object where the kernel has not said that there is one.
            flat_binder_object object = {};
            object.hdr.type =
                input.PickValueInArray<uint32_t>({BINDER_TYPE_BINDER, BINDER_TYPE_HANDLE, BINDER_TYPE_FD});
            object.binder = input.ConsumeIntegral<uint64_t>();
            object.cookie = input.ConsumeIntegral<uint64_t>();
            parcel.write(&object, sizeof(object));
            break;
        }
        default: {
            const std::string bytes = input.ConsumeRandomLengthString(kLongestText);
            parcel.write(bytes.data(), bytes.size());
            break;
        }
    }
}

void writeValues(FuzzedDataProvider& input, Parcel& parcel) {
    for (size_t step = 0; step < kSteps && input.remaining_bytes() > 0; ++step) {
        writeValue(input, parcel);
    }
}

/** A parcel of values as a client writes them, or of bytes as nobody does. */
void fill(FuzzedDataProvider& input, Parcel& parcel) {
    if (input.ConsumeBool()) {
        writeValues(input, parcel);
        return;
    }
    const std::vector<uint8_t> bytes = input.ConsumeRemainingBytes<uint8_t>();
    parcel.write(bytes.data(), bytes.size());
}

void requestToService(FuzzedDataProvider& input) {
    const sp<IBinder> service = new BnDeviceManager(new Core());
    // Without the two codes whose broken use ends the service by contract.
    const auto code = input.PickValueInArray<uint32_t>(
        {IDeviceManager::kStartup, IDeviceManager::kShutdown, IDeviceManager::kGetDevice,
         IDeviceManager::kGetDevices, IDeviceManager::kGetDevicePath, IBinder::PING_TRANSACTION,
         IBinder::INTERFACE_TRANSACTION, IBinder::DUMP_TRANSACTION, 0, 8, UINT32_MAX});
    const bool wantsReply = input.ConsumeBool();
    Parcel request;
    if (input.ConsumeBool()) {
        request.writeInterfaceToken(IDeviceManager::descriptor);
    }
    fill(input, request);
    Parcel reply;
    const status_t status = service->transact(code, request, wantsReply ? &reply : nullptr);
    require(status <= OK);
    require(!wantsReply || (reply.dataSize() >= sizeof(int32_t) && reply.readInt32() == 0));
}

void requestToNotifier(FuzzedDataProvider& input) {
    const sp<IBinder> notifier = new BnDeviceManagerNotifier(new Listener());
    const auto code = input.ConsumeIntegralInRange<uint32_t>(0, IDeviceManagerNotifier::kOnDeviceRemoved + 1);
    Parcel request;
    if (input.ConsumeBool()) {
        request.writeInterfaceToken(IDeviceManagerNotifier::descriptor);
    }
    fill(input, request);
    Parcel reply;
    const status_t status = notifier->transact(code, request, &reply);
    require(status <= OK);
    require(status != OK || reply.dataSize() == sizeof(int32_t));
}

/** What a service that is none of ours, or gone mad, may answer to its client. */
void replyToClient(FuzzedDataProvider& input) {
    const int operation = input.ConsumeIntegralInRange<int>(0, 4);
    const auto failure = input.ConsumeBool() ? status_t{OK} : input.ConsumeIntegral<status_t>();
    const sp<LoopbackBinder> remote = new LoopbackBinder(new BnDeviceManager(new Core()), 1);
    remote->onReply([&](status_t* status, Parcel* reply) {
        *status = failure;
        reply->freeData();
        fill(input, *reply);
    });
    const sp<IDeviceManager> manager = interface_cast<IDeviceManager>(sp<IBinder>(remote));
    switch (operation) {
        case 0: {
            const sp<DeviceItf> device = manager->getDevice(String8("block"), String8("up"));
            require(device == nullptr || Listener::lengthOf(device) >= 0);
            break;
        }
        case 1:
            for (const sp<DeviceItf>& device : manager->getDevices(String8("/devices"))) {
                Listener::lengthOf(device);
            }
            break;
        case 2: {
            const String8 path = manager->getDevicePath(0, 0);
            require(strlen(path.string()) <= path.size());
            break;
        }
        case 3:
            manager->startup();
            break;
        default:
            manager->addNotifier(new BnDeviceManagerNotifier(new Listener()));
            break;
    }
}

/** One read, its result looked at to its end. A failed one leaves the position; no read goes past the end. */
void readValue(FuzzedDataProvider& input, const Parcel& parcel) {
    const size_t before = parcel.dataPosition();
    bool found = true;
    switch (input.ConsumeIntegralInRange<int>(0, 13)) {
        case 0: {
            int32_t value = 0;
            found = parcel.readInt32(&value) == OK;
            break;
        }
        case 1: {
            int64_t value = 0;
            found = parcel.readInt64(&value) == OK;
            break;
        }
        case 2: {
            double value = 0;
            found = parcel.readDouble(&value) == OK;
            break;
        }
        case 3: {
            bool value = false;
            found = parcel.readBool(&value) == OK;
            break;
        }
        case 4: {
            const char* const text = parcel.readCString();
            found = text != nullptr;
            require(!found || strlen(text) < parcel.dataPosition() - before);
            break;
        }
        case 5: {
            size_t length = 0;
            const char* const text = parcel.readString8Inplace(&length);
            found = text != nullptr;
            require(found ? text[length] == '\0' : length == 0);
            break;
        }
        case 6: {
            size_t length = 0;
            const char16_t* const text = parcel.readString16Inplace(&length);
            found = text != nullptr;
            require(found ? text[length] == 0 : length == 0);
            break;
        }
        case 7: {
            String8 text;
            found = parcel.readString8(&text) == OK;
            require(text.size() <= parcel.dataSize());
            break;
        }
        case 8: {
            String16 text;
            const status_t status = parcel.readString16(&text);
            found = status == OK || status == android::UNEXPECTED_NULL;
            require(text.size() <= parcel.dataSize());
            break;
        }
        case 9: {
            sp<IBinder> object;
            found = parcel.readNullableStrongBinder(&object) == OK;
            // No call leaves this program: what is no local object was forged.
            require(object == nullptr || object->localBinder() != nullptr);
            require(object == nullptr || object->pingBinder() == OK);
            break;
        }
        case 10: {
            const int fd = parcel.readFileDescriptor();
            found = fd >= 0;
            require(!found || fcntl(fd, F_GETFD) >= 0);
            break;
        }
        case 11: {
            const auto length = input.ConsumeIntegral<size_t>();
            const void* const place = parcel.readInplace(length);
            found = place != nullptr;
            require(!found || length <= parcel.dataSize() - before);
            break;
        }
        case 12:
            parcel.enforceInterface(IDeviceManager::descriptor);
            break;
        default: {
            const sp<DeviceItf> device = device::readDevice(parcel);
            require(device == nullptr || Listener::lengthOf(device) >= 0);
            break;
        }
    }
    require(parcel.dataPosition() <= parcel.dataSize());
    require(found || parcel.dataPosition() == before);
}

/** Positions as programs set them: where a value may begin. */
size_t somePosition(FuzzedDataProvider& input, const Parcel& parcel) {
    return input.ConsumeIntegralInRange<size_t>(0, parcel.dataSize() / 4 + 1) * 4;
}

void anyOrder(FuzzedDataProvider& input) {
    Parcel parcel;
    for (size_t step = 0; step < kSteps && input.remaining_bytes() > 0; ++step) {
        switch (input.ConsumeIntegralInRange<int>(0, 7)) {
            case 0:
                parcel.setDataPosition(somePosition(input, parcel));
                break;
            case 1:
                writeValue(input, parcel);
                break;
            case 2: {
                Parcel other;
                writeValue(input, other);
                writeValue(input, other);
                const size_t start = somePosition(input, other);
                parcel.appendFrom(&other, start, input.ConsumeIntegralInRange<size_t>(0, other.dataSize()));
                break;
            }
            case 3: {
                const std::string bytes = input.ConsumeRandomLengthString(kLongestText);
                parcel.setData(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
                break;
            }
            case 4: {
                Parcel copy;
                require(copy.appendFrom(&parcel, 0, parcel.dataSize()) == OK);
                require(copy.objectsCount() == parcel.objectsCount());
                break;
            }
            default:
                readValue(input, parcel);
                break;
        }
        require(parcel.dataPosition() <= parcel.dataSize());
        require(parcel.dataAvail() == parcel.dataSize() - parcel.dataPosition());
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    // On a machine with a driver as on one without: no call of the inputs reaches it.
    return setenv("BINDER_DEVICE", "/nonexistent", 1);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider input(data, size);
    switch (input.ConsumeIntegralInRange<int>(0, 3)) {
        case 0:
            requestToService(input);
            break;
        case 1:
            requestToNotifier(input);
            break;
        case 2:
            replyToClient(input);
            break;
        default:
            anyOrder(input);
            break;
    }
    return 0;
}
