// SPDX-License-Identifier: Apache-2.0
#include "tests/integration/usb/TestBed.h"

#include <libusb-1.0/libusb.h>
#include <linux/usbdevice_fs.h>
#include <sys/ioctl.h>
#include <umockdev.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <map>
#include <mutex>
#include <thread>

namespace {

constexpr std::chrono::seconds kLimit(30);
constexpr const char* kController = "/sys/devices/pci0000:00/0000:00:14.0";
constexpr int kMaxNumber = 127;
constexpr uint8_t kConfigHeaderSize = 9;
constexpr uint8_t kInterfaceSize = 9;

[[noreturn]] void fail(const std::string& what) {
    fprintf(stderr, "TestBed: %s\n", what.c_str());
    abort();
}

template <typename OBJECT>
struct Unref {
    void operator()(OBJECT* object) const { g_object_unref(object); }
};
template <typename OBJECT>
using Owned = std::unique_ptr<OBJECT, Unref<OBJECT>>;

void append16(std::string& text, unsigned value) {
    text += static_cast<char>(value & 0xFF);
    text += static_cast<char>(value >> 8);
}

void append(std::string& text, std::initializer_list<unsigned> bytes) {
    for (const unsigned byte : bytes) {
        text += static_cast<char>(byte);
    }
}

std::string configDescriptor(const UsbConfigSpec& config, unsigned value) {
    std::vector<uint8_t> numbers;
    std::string body;
    for (const UsbInterfaceSpec& interface : config.interfaces) {
        append(body, {kInterfaceSize, LIBUSB_DT_INTERFACE, interface.number, interface.alternate, 0,
                      interface.interfaceClass, interface.interfaceSubClass, interface.interfaceProtocol, 0});
        if (std::find(numbers.begin(), numbers.end(), interface.number) == numbers.end()) {
            numbers.push_back(interface.number);
        }
    }
    std::string text;
    append(text, {kConfigHeaderSize, LIBUSB_DT_CONFIG});
    append16(text, static_cast<unsigned>(kConfigHeaderSize + body.size()));
    append(text, {static_cast<unsigned>(numbers.size()), value, 0, 0x80, config.maxPower});
    return text + body;
}

std::string descriptorsOf(const UsbDeviceSpec& spec) {
    if (!spec.descriptors.empty()) {
        return spec.descriptors;
    }
    std::string text;
    append(text, {LIBUSB_DT_DEVICE_SIZE, LIBUSB_DT_DEVICE, 0x00, 0x02, spec.deviceClass, spec.deviceSubClass,
                  spec.deviceProtocol, 64});
    append16(text, spec.vendor);
    append16(text, spec.product);
    append16(text, 0x0100);
    append(text, {spec.manufacturer.empty() ? 0U : 1U, spec.productName.empty() ? 0U : 2U,
                  spec.serial.empty() ? 0U : 3U, static_cast<unsigned>(spec.configs.size())});
    unsigned value = 0;
    for (const UsbConfigSpec& config : spec.configs) {
        text += configDescriptor(config, ++value);
    }
    return text;
}

std::string hex(const std::string& bytes) {
    std::string text;
    for (const char byte : bytes) {
        char digits[3];
        snprintf(digits, sizeof(digits), "%02X", static_cast<unsigned char>(byte));
        text += digits;
    }
    return text;
}

std::string stringDescriptor(const std::string& ascii) {
    std::string text;
    append(text, {static_cast<unsigned>(2 + 2 * ascii.size()), LIBUSB_DT_STRING});
    for (const char c : ascii) {
        append16(text, static_cast<unsigned char>(c));
    }
    return text;
}

/** One device node: answers what libusb asks the kernel. Its operations run on the bed's thread for such. */
class Node {
  public:
    Node(const UsbDeviceSpec& spec, const TestBed::Responder& responder)
        : mSpec(spec), mDescriptors(descriptorsOf(spec)), mResponder(responder) {}

    std::vector<UsbRequest> requests() const {
        const std::lock_guard<std::mutex> hold(mLock);
        return mRequests;
    }

    static gboolean onIoctl(UMockdevIoctlBase* /*base*/, UMockdevIoctlClient* client, gpointer node) {
        return static_cast<Node*>(node)->handle(client) ? TRUE : FALSE;
    }

    static void onVanished(UMockdevIoctlBase* /*base*/, UMockdevIoctlClient* client, gpointer node) {
        static_cast<Node*>(node)->mOpened.erase(client);
    }

  private:
    using Data = Owned<UMockdevIoctlData>;

    /** Transfers of one open file. */
    struct Opened {
        std::deque<Data> waiting;
        std::deque<Data> done;
    };

    static void complete(UMockdevIoctlClient* client, int error) {
        umockdev_ioctl_client_complete(client, error == 0 ? 0 : -1, error);
    }

    bool handle(UMockdevIoctlClient* client) {
        UMockdevIoctlData* const argument = umockdev_ioctl_client_get_arg(client);
        Opened& opened = mOpened[client];
        switch (umockdev_ioctl_client_get_request(client)) {
            case USBDEVFS_GET_CAPABILITIES: {
                const Data caps(umockdev_ioctl_data_resolve(argument, 0, sizeof(uint32_t), nullptr));
                const uint32_t value = USBDEVFS_CAP_BULK_CONTINUATION | USBDEVFS_CAP_REAP_AFTER_DISCONNECT;
                memcpy(caps->data, &value, sizeof(value));
                complete(client, 0);
                return true;
            }
            case USBDEVFS_SUBMITURB:
                submit(opened, argument);
                complete(client, 0);
                return true;
            case USBDEVFS_REAPURB:
            case USBDEVFS_REAPURBNDELAY:
                if (opened.done.empty()) {
                    complete(client, EAGAIN);
                } else {
                    const Data slot(umockdev_ioctl_data_resolve(argument, 0, sizeof(void*), nullptr));
                    umockdev_ioctl_data_set_ptr(slot.get(), 0, opened.done.front().get());
                    complete(client, 0);
                    opened.done.pop_front();
                }
                return true;
            case USBDEVFS_DISCARDURB:
                complete(client, discard(opened, argument) ? 0 : EINVAL);
                return true;
            case USBDEVFS_CLAIMINTERFACE:
            case USBDEVFS_RELEASEINTERFACE:
            case USBDEVFS_CLEAR_HALT:
            case USBDEVFS_RESET:
                complete(client, 0);
                return true;
            default:
                return false;
        }
    }

    void submit(Opened& opened, UMockdevIoctlData* argument) {
        Data data(umockdev_ioctl_data_resolve(argument, 0, sizeof(usbdevfs_urb), nullptr));
        auto* const urb = reinterpret_cast<usbdevfs_urb*>(data->data);
        const Data buffer(umockdev_ioctl_data_resolve(data.get(), G_STRUCT_OFFSET(usbdevfs_urb, buffer),
                                                      static_cast<size_t>(urb->buffer_length), nullptr));
        if (urb->type != USBDEVFS_URB_TYPE_CONTROL ||
            urb->buffer_length < static_cast<int>(LIBUSB_CONTROL_SETUP_SIZE)) {
            fail("only control transfers are answered");
        }
        const uint8_t* const setup = buffer->data;
        const UsbRequest request = {setup[0], setup[1], static_cast<uint16_t>(setup[2] | setup[3] << 8),
                                    static_cast<uint16_t>(setup[4] | setup[5] << 8),
                                    static_cast<uint16_t>(setup[6] | setup[7] << 8)};
        const UsbAnswer answer = respond(request);
        switch (answer.kind) {
            case UsbAnswer::kNone:
                opened.waiting.push_back(std::move(data));
                return;
            case UsbAnswer::kStall:
                urb->status = -EPIPE;
                urb->actual_length = 0;
                break;
            case UsbAnswer::kData: {
                urb->status = 0;
                const bool in = (request.requestType & LIBUSB_ENDPOINT_IN) != 0;
                const size_t room = static_cast<size_t>(urb->buffer_length) - LIBUSB_CONTROL_SETUP_SIZE;
                const size_t length = in ? std::min(answer.data.size(), room) : room;
                if (in) {
                    memcpy(buffer->data + LIBUSB_CONTROL_SETUP_SIZE, answer.data.data(), length);
                }
                urb->actual_length = static_cast<int>(length);
                break;
            }
        }
        opened.done.push_back(std::move(data));
    }

    bool discard(Opened& opened, UMockdevIoctlData* argument) {
        const auto found =
            std::find_if(opened.waiting.begin(), opened.waiting.end(), [argument](const Data& data) {
                return data->client_addr == *reinterpret_cast<gulong*>(argument->data);
            });
        if (found == opened.waiting.end()) {
            return false;
        }
        reinterpret_cast<usbdevfs_urb*>((*found)->data)->status = -ENOENT;
        opened.done.push_back(std::move(*found));
        opened.waiting.erase(found);
        return true;
    }

    UsbAnswer respond(const UsbRequest& request) {
        if (request.requestType == LIBUSB_ENDPOINT_IN && request.request == LIBUSB_REQUEST_GET_DESCRIPTOR) {
            return descriptor(request);
        }
        {
            const std::lock_guard<std::mutex> hold(mLock);
            mRequests.push_back(request);
        }
        return mResponder != nullptr ? mResponder(request) : UsbAnswer::stall();
    }

    UsbAnswer descriptor(const UsbRequest& request) const {
        const unsigned index = request.value & 0xFF;
        if (request.value >> 8 == LIBUSB_DT_DEVICE) {
            return UsbAnswer::ok(mDescriptors.substr(0, LIBUSB_DT_DEVICE_SIZE));
        }
        if (request.value >> 8 != LIBUSB_DT_STRING) {
            return UsbAnswer::stall();
        }
        switch (index) {
            case 0:
                return UsbAnswer::ok(std::string("\x04\x03\x09\x04", 4));
            case 1:
                return UsbAnswer::ok(stringDescriptor(mSpec.manufacturer));
            case 2:
                return UsbAnswer::ok(stringDescriptor(mSpec.productName));
            case 3:
                return UsbAnswer::ok(stringDescriptor(mSpec.serial));
            default:
                return UsbAnswer::stall();
        }
    }

    const UsbDeviceSpec mSpec;
    const std::string mDescriptors;
    const TestBed::Responder mResponder;
    std::map<UMockdevIoctlClient*, Opened> mOpened;
    mutable std::mutex mLock;  // guards mRequests
    std::vector<UsbRequest> mRequests;
};

struct Device {
    std::string path;  //!< below the sysfs root, which stands before it
    std::string devNode;
    int bus = 0;
    int number = 0;
    std::unique_ptr<Node> node;
    Owned<UMockdevIoctlBase> handler;
};

std::string parentOf(const std::string& name) {
    const size_t dot = name.rfind('.');
    return dot != std::string::npos ? name.substr(0, dot) : "usb" + name.substr(0, name.find('-'));
}

}  // namespace

UsbDeviceSpec UsbDeviceSpec::hub() {
    UsbDeviceSpec spec;
    spec.vendor = 0x1D6B;
    spec.product = 0x0002;
    spec.deviceClass = LIBUSB_CLASS_HUB;
    spec.configs = {{0, {{0, 0, LIBUSB_CLASS_HUB, 0, 0}}}};
    return spec;
}

UsbDeviceSpec UsbDeviceSpec::stick() {
    return UsbDeviceSpec();
}

UsbDeviceSpec UsbDeviceSpec::phoneOfApple(uint16_t product) {
    UsbDeviceSpec spec;
    spec.vendor = 0x05AC;
    spec.product = product;
    spec.configs = {{250, {{0, 0, 6, 1, 1}}}};
    return spec;
}

class TestBed::Private {
  public:
    Private() : bed(umockdev_testbed_new()) {
        if (umockdev_in_mock_environment() == FALSE) {
            fail("this program is not linked with libumockdev-preload");
        }
    }

    ~Private() {
        if (context != nullptr) {
            libusb_exit(context);
        }
        for (auto& entry : devices) {
            detach(entry.second);
        }
        // Ends the bed's thread, which may still be told of files that were closed.
        bed.reset();
    }

    void detach(const Device& device) {
        umockdev_testbed_detach_ioctl(bed.get(), device.devNode.c_str(), nullptr);
    }

    void add(const std::string& name, const UsbDeviceSpec& spec, const Responder& responder) {
        const bool root = name.rfind("usb", 0) == 0;
        Device device;
        device.bus = atoi(name.c_str() + (root ? 3 : 0));
        device.number = nextNumber(device.bus);
        if (root) {
            device.path = std::string(kController) + "/" + name;
        } else {
            const auto parent = devices.find(parentOf(name));
            if (parent == devices.end()) {
                fail("no " + parentOf(name) + " to plug " + name + " into");
            }
            device.path = parent->second.path + "/" + name;
        }
        char devName[32];
        snprintf(devName, sizeof(devName), "bus/usb/%03d/%03d", device.bus, device.number);
        device.devNode = std::string("/dev/") + devName;

        device.node = std::make_unique<Node>(spec, responder);
        device.handler.reset(umockdev_ioctl_base_new());
        g_signal_connect(device.handler.get(), "handle-ioctl", G_CALLBACK(&Node::onIoctl), device.node.get());
        GError* error = nullptr;
        if (umockdev_testbed_attach_ioctl(bed.get(), device.devNode.c_str(), device.handler.get(), &error) ==
            FALSE) {
            fail(error->message);
        }
        std::string text;
        text += "P: " + device.path.substr(strlen("/sys")) + "\n";
        text += "N: " + std::string(devName) + "\n";
        text += "E: SUBSYSTEM=usb\nE: DEVTYPE=usb_device\n";
        text += "E: DEVNAME=" + device.devNode + "\n";
        text += "E: BUSNUM=" + std::to_string(device.bus) + "\n";
        text += "E: DEVNUM=" + std::to_string(device.number) + "\n";
        text += "A: busnum=" + std::to_string(device.bus) + "\n";
        text += "A: devnum=" + std::to_string(device.number) + "\n";
        text += "A: bConfigurationValue=" +
                (spec.activeConfig > 0 ? std::to_string(spec.activeConfig) : std::string()) + "\n";
        text += "A: speed=" + spec.speed + "\n";
        text += "H: descriptors=" + hex(descriptorsOf(spec)) + "\n\n";
        if (umockdev_testbed_add_from_string(bed.get(), text.c_str(), &error) == FALSE) {
            fail(error->message);
        }
        const int bus = device.bus;
        const int number = device.number;
        devices[name] = std::move(device);
        waitForListed(bus, number, true);
    }

    /** The next one that is free, in a circle, as the kernel gives them. */
    int nextNumber(int bus) {
        int& last = lastNumber[bus];
        do {
            last = last % kMaxNumber + 1;
        } while (std::any_of(devices.begin(), devices.end(), [bus, last](const auto& entry) {
            return entry.second.bus == bus && entry.second.number == last;
        }));
        return last;
    }

    void remove(const std::string& name) {
        // Names sort behind those of their parents.
        std::vector<std::string> leaving;
        const std::string path = at(name).path;
        for (const auto& [other, device] : devices) {
            if (device.path == path || device.path.rfind(path + "/", 0) == 0) {
                leaving.push_back(other);
            }
        }
        std::sort(leaving.begin(), leaving.end(),
                  [this](const std::string& a, const std::string& b) { return at(a).path > at(b).path; });
        for (const std::string& gone : leaving) {
            removeOne(gone);
        }
    }

    void removeOne(const std::string& name) {
        const Device& device = at(name);
        umockdev_testbed_uevent(bed.get(), device.path.c_str(), "remove");
        waitForListed(device.bus, device.number, false);
        detach(device);
        umockdev_testbed_remove_device(bed.get(), device.path.c_str());
        gone.push_back(std::move(devices.extract(name).mapped()));
    }

    void vanish(const std::string& name) {
        const std::unique_ptr<gchar, decltype(&g_free)> root(umockdev_testbed_get_root_dir(bed.get()),
                                                             g_free);
        const std::string node = root.get() + at(name).devNode;
        if (unlink(node.c_str()) != 0) {
            fail(node + ": " + strerror(errno));
        }
    }

    Device& at(const std::string& name) {
        const auto found = devices.find(name);
        if (found == devices.end()) {
            fail("no " + name);
        }
        return found->second;
    }

    /** The bed's own view of libusb: when it has the device, the message has reached libusb. */
    void waitForListed(int bus, int number, bool wanted) {
        if (context == nullptr) {
            return;
        }
        const auto deadline = std::chrono::steady_clock::now() + kLimit;
        while (isListed(bus, number) != wanted) {
            if (std::chrono::steady_clock::now() > deadline) {
                fail("libusb has not heard of " + std::to_string(bus) + "/" + std::to_string(number));
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }

    bool isListed(int bus, int number) const {
        // libusb keeps what it would report until someone takes it.
        timeval none = {0, 0};
        libusb_handle_events_timeout(context, &none);
        libusb_device** list = nullptr;
        const ssize_t count = libusb_get_device_list(context, &list);
        bool found = false;
        for (ssize_t i = 0; i < count; ++i) {
            found = found ||
                    (libusb_get_bus_number(list[i]) == bus && libusb_get_device_address(list[i]) == number);
        }
        libusb_free_device_list(list, 1);
        return found;
    }

    Owned<UMockdevTestbed> bed;
    libusb_context* context = nullptr;
    std::map<std::string, Device> devices;
    std::vector<Device> gone;  //!< kept: the bed's thread may be about to tell them of a closed file
    std::map<int, int> lastNumber;
};

TestBed::TestBed() : mPrivate(std::make_unique<Private>()) {
    addBus(1);
    if (libusb_init(&mPrivate->context) < 0) {
        fail("no libusb");
    }
}

TestBed::~TestBed() = default;

void TestBed::addBus(int bus) {
    UsbDeviceSpec spec = UsbDeviceSpec::hub();
    mPrivate->add("usb" + std::to_string(bus), spec, nullptr);
}

void TestBed::plug(const std::string& name, const UsbDeviceSpec& spec) {
    plug(name, spec, nullptr);
}

void TestBed::plug(const std::string& name, const UsbDeviceSpec& spec, const Responder& responder) {
    mPrivate->add(name, spec, responder);
}

void TestBed::unplug(const std::string& name) {
    mPrivate->remove(name);
}

void TestBed::vanish(const std::string& name) {
    mPrivate->vanish(name);
}

int TestBed::deviceNumber(const std::string& name) const {
    return mPrivate->at(name).number;
}

std::vector<UsbRequest> TestBed::requests(const std::string& name) const {
    return mPrivate->at(name).node->requests();
}
