// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The interface records: from uevents, decoded here or come from the kernel, to what readers of the store
 * see.
 */
#include "usb/UEventPublisher.h"

#include <android/log.h>
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <string>
#include <vector>

#include "common/UeventObserver.h"
#include "tests/support/TestFolder.h"
#include "tests/support/UeventInjector.h"
#include "tests/unit/support/LogCapture.h"

using android::sp;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using usb::UEventPublisher;
using namespace std::chrono_literals;

namespace {

/** Allocations of libutils' containers and texts from now on until the one that fails; 0 for none. */
std::atomic<int> sFailingAlloc{0};

}  // namespace

namespace android {

/** libutils' own, which is in none of its headers. This one takes its place. */
class SharedBuffer {
  public:
    static SharedBuffer* alloc(size_t size);
};

SharedBuffer* SharedBuffer::alloc(size_t size) {
    using Alloc = SharedBuffer* (*)(size_t);
    static const auto sReal = reinterpret_cast<Alloc>(dlsym(RTLD_NEXT, "_ZN7android12SharedBuffer5allocEm"));
    if (sFailingAlloc > 0 && --sFailingAlloc == 0) {
        return nullptr;
    }
    return sReal(size);
}

}  // namespace android

namespace {

constexpr char kHost[] = "/devices/platform/ehci-platform.1/usb1";
constexpr char kTag[] = "UsbManagerImpl";

std::string interfacePath(const std::string& name) {
    return std::string(kHost) + "/1-1/" + name;
}

LogLine error(const std::string& text) {
    return {ANDROID_LOG_ERROR, kTag, "[UEventPublisher]" + text};
}

LogLine warning(const std::string& text) {
    return {ANDROID_LOG_WARN, kTag, "[UEventPublisher]" + text};
}

class UEventPublisherTest : public ::testing::Test {
  protected:
    void SetUp() override { use(mFolder.path()); }

    static void use(const std::string& folder) { ASSERT_EQ(0, setenv("VELTA_PPS_DIR", folder.c_str(), 1)); }

    void handle(const std::string& action, const std::string& path, const std::string& subsystem,
                const std::vector<std::string>& properties = {}) {
        handleDatagram(UeventInjector::compose(action, path, subsystem, properties));
    }

    void handleDatagram(std::string datagram) {
        const sp<Uevent> uevent = new Uevent(datagram.data(), datagram.size());
        mPublisher.handle(*uevent);
    }

    void addInterface(const std::string& path) { handle("add", path, "usb", {"DEVTYPE=usb_interface"}); }
    void addNode(const std::string& path, const std::string& name) {
        handle("add", path, "usb", {"MAJOR=180", "DEVNAME=" + name});
    }
    void remove(const std::string& path) { handle("remove", path, "usb"); }

    std::string record(const std::string& name) const { return contentOf(mFolder.path(name)); }
    std::vector<LogLine> log() { return mLog.take(); }

    LogCapture mLog;
    // libutils makes its shared empty string with the first one: before there are threads.
    const android::String8 mFirst;
    TestFolder mFolder;
    UEventPublisher mPublisher;
};

using UEventPublisherDeathTest = UEventPublisherTest;

}  // namespace

TEST_F(UEventPublisherTest, FindsTheBusInAPath) {
    const auto number = [](const std::string& path) { return UEventPublisher::getBusNum(path.c_str()); };
    EXPECT_EQ(1, number("/devices/platform/ehci-platform.1/usb1/1-1/1-1:1.0"));
    EXPECT_EQ(12, number("/devices/x/usb12/"));
    EXPECT_EQ(12, number("/devices/x/usb12"));
    EXPECT_EQ(99, number("/usb99/x"));
    // A third digit is not looked at.
    EXPECT_EQ(12, number("/usb123/1-1"));
    EXPECT_EQ(0, number("/usb0/1-1"));
    EXPECT_EQ(0, number("/usb07/1-1"));
    EXPECT_EQ(1, number("/usb1x/"));
    EXPECT_EQ(1, number("/usb1/usb2/2-1"));
}

TEST_F(UEventPublisherTest, FindsNoBusWhereThereIsNone) {
    for (const std::string& path :
         {std::string(), std::string("/"), std::string("/devices/x"), std::string("usb1/1-1"),
          std::string("/usb"), std::string("/usb1"), std::string("/devices/pci/usb1"), std::string("/usb0"),
          std::string("/usb/x/y"), std::string("/usbx/y"), std::string("/usb-host/usb1/1-1"),
          std::string("/usb-5/x"), std::string("/USB1/1-1"), std::string(4000, '/')}) {
        EXPECT_LT(UEventPublisher::getBusNum(path.c_str()), 0) << path;
    }
}

TEST_F(UEventPublisherDeathTest, APathIsNeeded) {
    EXPECT_DEATH(UEventPublisher::getBusNum(nullptr),
                 "assertion \"path!=__null\" failed: file \"UEventPublisher\"");
}

TEST_F(UEventPublisherTest, OtherSubsystemsAreLoggedAndIgnored) {
    addInterface(interfacePath("1-1:1.0"));
    handle("add", interfacePath("1-1:1.0/block/sda"), "block", {"DEVTYPE=disk", "DEVNAME=sda"});
    handle("remove", interfacePath("1-1:1.0"), "tty");
    handle("add", interfacePath("1-1:1.0/x"), "", {"DEVNAME=x"});
    handle("add", interfacePath("1-1:1.0/x"), "usbmisc", {"DEVNAME=x"});
    const LogLine notUsb = error("the subsystem is not usb");
    EXPECT_THAT(log(), ElementsAre(notUsb, notUsb, error("have no sub system"), notUsb));
    EXPECT_THAT(mFolder.names(), IsEmpty());
    // The interface is still there, with its number.
    addNode(interfacePath("1-1:1.0/usb/lp0"), "usb/lp0");
    EXPECT_THAT(mFolder.names(), ElementsAre("usbdev.bus.1.itf.0"));
}

TEST_F(UEventPublisherTest, ARecordThatWasNotDecodedIsLogged) {
    const sp<Uevent> empty = new Uevent();
    mPublisher.handle(*empty);
    EXPECT_THAT(log(), ElementsAre(error("have no sub system")));
    handle("add", "/devices/virtual/x", "usb", {"DEVNAME=x"});
    handle("add", kHost, "usb", {"DEVTYPE=usb_device"});
    handle("remove", "", "usb");
    const LogLine noBus = error("get bus num failed");
    EXPECT_THAT(log(), ElementsAre(noBus, noBus, noBus));
    EXPECT_THAT(mFolder.names(), IsEmpty());
}

TEST_F(UEventPublisherTest, PublishesTheNodeOfAnInterface) {
    addInterface(interfacePath("1-1:1.0"));
    addInterface(interfacePath("1-1:1.1"));
    addNode(interfacePath("1-1:1.1/ttyUSB0/tty/ttyUSB0"), "ttyUSB0");
    EXPECT_THAT(mFolder.names(), ElementsAre("usbdev.bus.1.itf.1"));
    EXPECT_EQ("DEVPATH=" + interfacePath("1-1:1.1/ttyUSB0/tty/ttyUSB0") + "\nDEVNAME=ttyUSB0\n",
              record("usbdev.bus.1.itf.1"));
    addNode(interfacePath("1-1:1.0/x"), "bus/usb/x");
    EXPECT_EQ("DEVPATH=" + interfacePath("1-1:1.0/x") + "\nDEVNAME=bus/usb/x\n",
              record("usbdev.bus.1.itf.0"));
    EXPECT_THAT(log(), IsEmpty());
}

TEST_F(UEventPublisherTest, ANodeNeedsItsInterface) {
    // No interface of the bus: nothing is said, not even of a missing name.
    addNode(interfacePath("1-1:1.0/x"), "x");
    handle("add", interfacePath("1-1"), "usb", {"DEVTYPE=usb_device"});
    EXPECT_THAT(log(), IsEmpty());
    addInterface(interfacePath("1-1:1.0"));
    addNode(interfacePath("1-1:1.1/x"), "x");
    addNode(interfacePath("1-1"), "bus/usb/001/002");
    addNode("/devices/platform/ehci-platform.2/usb2/2-1/2-1:1.0/x", "x");
    EXPECT_THAT(log(), IsEmpty());
    handle("add", interfacePath("1-1:1.0/x"), "usb", {"DEVTYPE=usb_device"});
    // Only the very key counts.
    handle("add", interfacePath("1-1:1.0/x"), "usb", {"DEVNAME_OLD=x", "DEVNAMES=x"});
    const LogLine noName = error("uevent have no device name");
    EXPECT_THAT(log(), ElementsAre(noName, noName));
    EXPECT_THAT(mFolder.names(), IsEmpty());
}

TEST_F(UEventPublisherTest, OnlyTheVeryTypeMakesAnInterface) {
    handle("add", interfacePath("1-1:1.0"), "usb", {"DEVTYPE=usb_interfaces", "DEVNAME=x"});
    handle("add", interfacePath("1-1:1.0"), "usb", {"DEVTYPE2=usb_interface", "DEVNAME=x"});
    addNode(interfacePath("1-1:1.0/x"), "x");
    EXPECT_THAT(mFolder.names(), IsEmpty());
    // A name beside the type changes nothing.
    handle("add", interfacePath("1-1:1.0"), "usb", {"DEVNAME=x", "DEVTYPE=usb_interface"});
    EXPECT_THAT(mFolder.names(), IsEmpty());
    addNode(interfacePath("1-1:1.0/x"), "x");
    EXPECT_THAT(mFolder.names(), ElementsAre("usbdev.bus.1.itf.0"));
}

TEST_F(UEventPublisherTest, AnInterfaceWhoseNameBeginsAnotherIsNotTaken) {
    for (int i = 0; i <= 10; ++i) {
        addInterface(interfacePath("1-1:1." + std::to_string(i)));
    }
    addNode(interfacePath("1-1:1.10/x"), "x");
    EXPECT_THAT(mFolder.names(), ElementsAre("usbdev.bus.1.itf.10"));
    addNode(interfacePath("1-1:1.1/y"), "y");
    EXPECT_THAT(record("usbdev.bus.1.itf.1"), HasSubstr("DEVNAME=y\n"));
}

TEST_F(UEventPublisherTest, TheFirstInterfaceInOrderOfPathsIsTaken) {
    addInterface(interfacePath("1-1:1.0/nested:1.0"));
    addInterface(interfacePath("1-1:1.0"));
    addNode(interfacePath("1-1:1.0/nested:1.0/x"), "x");
    EXPECT_THAT(mFolder.names(), ElementsAre("usbdev.bus.1.itf.1"));
}

TEST_F(UEventPublisherTest, TheRecordGoesWithItsInterface) {
    addInterface(interfacePath("1-1:1.0"));
    addInterface(interfacePath("1-1:1.1"));
    addNode(interfacePath("1-1:1.0/x"), "x");
    addNode(interfacePath("1-1:1.1/y"), "y");
    // Not with its node, nor with the interface's device.
    remove(interfacePath("1-1:1.0/x"));
    remove(interfacePath("1-1"));
    EXPECT_THAT(mFolder.names(), ElementsAre("usbdev.bus.1.itf.0", "usbdev.bus.1.itf.1"));
    remove(interfacePath("1-1:1.0"));
    EXPECT_THAT(mFolder.names(), ElementsAre("usbdev.bus.1.itf.1"));
    // A second time there is nothing to remove.
    remove(interfacePath("1-1:1.0"));
    EXPECT_THAT(mFolder.names(), ElementsAre("usbdev.bus.1.itf.1"));
    EXPECT_THAT(log(), IsEmpty());
}

TEST_F(UEventPublisherTest, AnInterfaceWithoutNodeIsWithdrawnToo) {
    addInterface(interfacePath("1-1:1.0"));
    // Left by a former run of the daemon.
    writeFile(mFolder.path("usbdev.bus.1.itf.0"), "DEVNAME=old\n");
    remove(interfacePath("1-1:1.0"));
    EXPECT_THAT(mFolder.names(), IsEmpty());
}

TEST_F(UEventPublisherTest, NumbersBeginAnewWithAnEmptyBus) {
    addInterface(interfacePath("1-1:1.0"));
    addInterface(interfacePath("1-1:1.1"));
    remove(interfacePath("1-1:1.0"));
    // Not while an interface is left.
    addInterface(interfacePath("1-1:1.0"));
    addNode(interfacePath("1-1:1.0/x"), "x");
    EXPECT_THAT(mFolder.names(), ElementsAre("usbdev.bus.1.itf.2"));
    remove(interfacePath("1-1:1.0"));
    remove(interfacePath("1-1:1.1"));
    EXPECT_THAT(mFolder.names(), IsEmpty());
    addInterface(interfacePath("1-1:1.5"));
    addNode(interfacePath("1-1:1.5/x"), "x");
    EXPECT_THAT(mFolder.names(), ElementsAre("usbdev.bus.1.itf.0"));
}

TEST_F(UEventPublisherTest, EachBusHasNumbersOfItsOwn) {
    addInterface(interfacePath("1-1:1.0"));
    addInterface("/devices/y/usb12/12-1/12-1:1.0");
    addInterface("/devices/z/usb0/0-1/0-1:1.0");
    addNode("/devices/y/usb12/12-1/12-1:1.0/x", "x");
    addNode("/devices/z/usb0/0-1/0-1:1.0/x", "x");
    addNode(interfacePath("1-1:1.0/x"), "x");
    EXPECT_THAT(mFolder.names(),
                ElementsAre("usbdev.bus.0.itf.0", "usbdev.bus.1.itf.0", "usbdev.bus.12.itf.0"));
    remove("/devices/y/usb12/12-1/12-1:1.0");
    EXPECT_THAT(mFolder.names(), ElementsAre("usbdev.bus.0.itf.0", "usbdev.bus.1.itf.0"));
}

TEST_F(UEventPublisherTest, AnInterfaceAddedTwiceKeepsItsNumber) {
    addInterface(interfacePath("1-1:1.0"));
    addInterface(interfacePath("1-1:1.1"));
    addInterface(interfacePath("1-1:1.0"));
    EXPECT_THAT(log(), ElementsAre(error("interface add twice")));
    addNode(interfacePath("1-1:1.0/x"), "x");
    EXPECT_THAT(mFolder.names(), ElementsAre("usbdev.bus.1.itf.0"));
    addInterface(interfacePath("1-1:1.2"));
    addNode(interfacePath("1-1:1.2/x"), "x");
    EXPECT_THAT(mFolder.names(), ElementsAre("usbdev.bus.1.itf.0", "usbdev.bus.1.itf.2"));
}

TEST_F(UEventPublisherTest, ASecondNodeIsReportedAndReplacesTheFirst) {
    addInterface(interfacePath("1-1:1.0"));
    addNode(interfacePath("1-1:1.0/x"), "x");
    addNode(interfacePath("1-1:1.0/y"), "y");
    addNode(interfacePath("1-1:1.0/y"), "y");
    const LogLine multiple = warning("multiple devices on one interface");
    EXPECT_THAT(log(), ElementsAre(multiple, multiple));
    EXPECT_EQ("DEVPATH=" + interfacePath("1-1:1.0/y") + "\nDEVNAME=y\n", record("usbdev.bus.1.itf.0"));
    // The driver is unbound and bound again: one node after the other.
    remove(interfacePath("1-1:1.0/y"));
    addNode(interfacePath("1-1:1.0/z"), "z");
    EXPECT_THAT(log(), IsEmpty());
    EXPECT_THAT(record("usbdev.bus.1.itf.0"), HasSubstr("DEVNAME=z\n"));
}

TEST_F(UEventPublisherTest, OtherActionsChangeNothing) {
    addInterface(interfacePath("1-1:1.0"));
    addNode(interfacePath("1-1:1.0/x"), "x");
    for (const char* const action : {"change", "move", "online", "offline", "bind", "unbind", ""}) {
        handle(action, interfacePath("1-1:1.0"), "usb", {"DEVTYPE=usb_interface", "DEVNAME=y"});
        handle(action, interfacePath("1-1:1.0/y"), "usb", {"DEVNAME=y"});
    }
    EXPECT_THAT(log(), IsEmpty());
    EXPECT_THAT(record("usbdev.bus.1.itf.0"), HasSubstr("DEVNAME=x\n"));
}

TEST_F(UEventPublisherTest, AFailedPublicationIsLoggedAndForgotten) {
    writeFile(mFolder.path("file"), "");
    use(mFolder.path("file"));
    addInterface(interfacePath("1-1:1.0"));
    addNode(interfacePath("1-1:1.0/x"), "x");
    const LogLine failed = error("publish failed!! obj_name[usbdev.bus.1.itf.0]");
    EXPECT_THAT(log(), ElementsAre(failed));
    remove(interfacePath("1-1:1.0"));
    EXPECT_THAT(log(), ElementsAre(failed));
    // The interface is gone all the same: nothing is tried again, and the numbers begin anew.
    use(mFolder.path());
    remove(interfacePath("1-1:1.0"));
    EXPECT_THAT(mFolder.names(), ElementsAre("file"));
    addInterface(interfacePath("1-1:1.1"));
    addNode(interfacePath("1-1:1.1/x"), "x");
    EXPECT_THAT(mFolder.names(), ElementsAre("file", "usbdev.bus.1.itf.0"));
    EXPECT_THAT(log(), IsEmpty());
}

TEST_F(UEventPublisherTest, HostileTextsStayOnTheirLine) {
    addInterface(interfacePath("../../etc"));
    addNode(interfacePath("../../etc/x\nDEVNAME=forged"), "../../y\n%s\\");
    EXPECT_EQ("DEVPATH=" + interfacePath("../../etc/x\\nDEVNAME=forged") + "\nDEVNAME=../../y\\n%s\\\\\n",
              record("usbdev.bus.1.itf.0"));
    const std::string deep = interfacePath(std::string(60000, 'd'));
    addInterface(deep);
    addNode(deep + "/x", std::string(4000, 'n'));
    EXPECT_EQ("DEVPATH=" + deep + "/x\nDEVNAME=" + std::string(4000, 'n') + "\n",
              record("usbdev.bus.1.itf.1"));
    EXPECT_THAT(mFolder.names(), ElementsAre("usbdev.bus.1.itf.0", "usbdev.bus.1.itf.1"));
}

TEST_F(UEventPublisherTest, ThousandsOfInterfacesComeAndGo) {
    for (int round = 0; round < 2; ++round) {
        for (int i = 0; i < 1000; ++i) {
            addInterface(interfacePath("1-1:1." + std::to_string(i)));
        }
        addNode(interfacePath("1-1:1.999/x"), "x");
        EXPECT_THAT(mFolder.names(), ElementsAre("usbdev.bus.1.itf.999"));
        for (int i = 0; i < 1000; ++i) {
            remove(interfacePath("1-1:1." + std::to_string(i)));
        }
        EXPECT_THAT(mFolder.names(), IsEmpty());
    }
    EXPECT_THAT(log(), IsEmpty());
}

// Whichever allocation fails, the daemon goes on without that interface, and the next one is served.
TEST_F(UEventPublisherTest, AnInterfaceWithoutMemoryIsLost) {
    std::string datagram =
        UeventInjector::compose("add", interfacePath("1-1:1.0"), "usb", {"DEVTYPE=usb_interface"});
    int lost = 0;
    for (int fail = 1;; ++fail) {
        UEventPublisher publisher;
        std::string copy = datagram;
        const sp<Uevent> uevent = new Uevent(copy.data(), copy.size());
        sFailingAlloc = fail;
        publisher.handle(*uevent);
        const bool failed = sFailingAlloc == 0;
        sFailingAlloc = 0;
        const std::vector<LogLine> lines = log();
        const bool isLost =
            lines ==
            std::vector<LogLine>{error("add usb interface failed!:path[" + interfacePath("1-1:1.0") + "]")};
        EXPECT_TRUE(isLost || lines.empty()) << lines[0];
        lost += isLost ? 1 : 0;

        std::string node = UeventInjector::compose("add", interfacePath("1-1:1.0/x"), "usb", {"DEVNAME=x"});
        const sp<Uevent> nodeEvent = new Uevent(node.data(), node.size());
        publisher.handle(*nodeEvent);
        EXPECT_EQ(isLost, mFolder.names().empty()) << "allocation " << fail;
        std::string gone = UeventInjector::compose("remove", interfacePath("1-1:1.0"), "usb");
        const sp<Uevent> goneEvent = new Uevent(gone.data(), gone.size());
        publisher.handle(*goneEvent);
        EXPECT_THAT(mFolder.names(), IsEmpty());
        copy = datagram;
        const sp<Uevent> again = new Uevent(copy.data(), copy.size());
        publisher.handle(*again);
        publisher.handle(*nodeEvent);
        EXPECT_THAT(mFolder.names(), ElementsAre("usbdev.bus.1.itf.0"));
        publisher.handle(*goneEvent);
        EXPECT_THAT(log(), IsEmpty());
        if (!failed) {
            break;
        }
    }
    EXPECT_GE(lost, 3) << "the bus, the path, the interface";
}

TEST_F(UEventPublisherTest, ThePublisherOfTheDaemonIsOne) {
    EXPECT_EQ(&UEventPublisher::instance(), &UEventPublisher::instance());
}

namespace {

/** As the manager does: every uevent, of whatever subsystem. */
class Feed : public UeventObserverNotifier {
  public:
    int onUevent(const sp<Uevent>& event) override {
        UEventPublisher::instance().handle(*event);
        return 0;
    }
};

}  // namespace

TEST_F(UEventPublisherTest, FollowsTheKernelsUevents) {
    UeventInjector injector;
    ASSERT_EQ(0, injector.open()) << "(root is needed)";
    const sp<UeventObserver> observer = new UeventObserver();
    observer->registerNotifier(new Feed());
    observer->start();
    const std::vector<std::string> isInterface = {"DEVTYPE=usb_interface"};
    ASSERT_EQ(0, injector.send("add", interfacePath("1-1:1.0"), "usb", isInterface));
    ASSERT_EQ(0, injector.send("add", interfacePath("1-1:1.1"), "usb", isInterface));
    ASSERT_EQ(0, injector.send("add", interfacePath("1-1:1.1/tty/ttyUSB0"), "usb", {"DEVNAME=ttyUSB0"}));
    // What a tty driver of the kernel really sends: a subsystem of its own, hence no record.
    ASSERT_EQ(0, injector.send("add", interfacePath("1-1:1.0/tty/ttyACM0"), "tty", {"DEVNAME=ttyACM0"}));
    // The marker is handled after all of these.
    ASSERT_EQ(0, injector.send("add", interfacePath("1-1:1.1"), "usb", isInterface));
    ASSERT_TRUE(mLog.waitFor(error("interface add twice"), 30s));
    EXPECT_EQ("DEVPATH=" + interfacePath("1-1:1.1/tty/ttyUSB0") + "\nDEVNAME=ttyUSB0\n",
              record("usbdev.bus.1.itf.1"));
    EXPECT_THAT(mFolder.names(), ElementsAre("usbdev.bus.1.itf.1"));
    EXPECT_GE(mLog.count([](const LogLine& line) { return line == error("the subsystem is not usb"); }), 1U);
    log();
    ASSERT_EQ(0, injector.send("remove", interfacePath("1-1:1.1"), "usb", isInterface));
    ASSERT_EQ(0, injector.send("add", interfacePath("1-1:1.0"), "usb", isInterface));
    ASSERT_TRUE(mLog.waitFor(error("interface add twice"), 30s));
    EXPECT_THAT(mFolder.names(), IsEmpty());
    ASSERT_EQ(0, injector.send("remove", interfacePath("1-1:1.0"), "usb", isInterface));
    ASSERT_EQ(0, injector.send("add", "/usb-end", "usb"));
    ASSERT_TRUE(mLog.waitFor(error("get bus num failed"), 30s));
    observer->stop();
}
