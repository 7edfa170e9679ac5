// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <nlohmann/json.hpp>

#include "client/Lists.h"
#include "tools/devicectl/CommandLine.h"
#include "tools/devicectl/EventQueue.h"
#include "tools/devicectl/Render.h"
#include "tools/devicectl/UsbMonitorNotifier.h"
#include "tools/devicectl/UsbNames.h"
#include "tools/devicectl/UsbOperations.h"
#include "usb/IUsbHostNotifier.h"
#include "usb/IUsbManagerNotifier.h"
#include "usb/UsbDevice.h"

namespace devicectl {

using android::IBinder;
using android::sp;
using testing::ElementsAre;
using testing::HasSubstr;
using usb::UsbConfig;
using usb::UsbDevice;
using usb::UsbDeviceItf;
using usb::UsbInterface;
using Json = nlohmann::json;
using Line = std::vector<std::string>;

namespace {

sp<UsbDeviceItf> device(uint32_t id, uint32_t vendor, uint32_t product, uint32_t deviceClass,
                        uint32_t maxPower, const std::vector<std::array<uint32_t, 3>>& interfaces) {
    UsbDevice::Interfaces set;
    for (const auto& [interfaceClass, subClass, protocol] : interfaces) {
        set.add(new UsbInterface(interfaceClass, subClass, protocol));
    }
    return new UsbDevice(id, 1, nullptr, product, vendor, deviceClass, 0, 0, set, new UsbConfig(maxPower));
}

sp<UsbDeviceItf> keyboard() {
    return device(3, 0x046d, 0xc31c, 0, 45, {{3, 1, 1}, {3, 0, 0}});
}

sp<UsbDeviceItf> hub() {
    return device(12, 0x9999, 0x0001, 9, 0, {});
}

/** The list of a file that the test writes. */
UsbNames namesOf(const std::string& text) {
    std::string path = "/tmp/usb-names-XXXXXX";
    close(mkstemp(path.data()));
    std::ofstream(path) << text;
    UsbNames names = UsbNames::load(path);
    unlink(path.c_str());
    return names;
}

constexpr const char* kList =
    "# A comment\n"
    "\n"
    "046d  Logitech, Inc.\n"
    "\tc31c  Keyboard K120\n"
    "\t\t01  An interface\n"
    "\tbroken line\n"
    "9999  Odd\x1b[2J\xff\n"
    "C 00  (Defined at Interface level)\n"
    "\t00  A subclass\n"
    "\tc31c  No product of a class\n"
    "C 09  Hub\n"
    "AT 0100  USB Undefined\n"
    "\tc31c  No product of a terminal\n"
    "HID 21  HID\n";

UsbRequest requested(const Line& words) {
    Line line{"usb"};
    line.insert(line.end(), words.begin(), words.end());
    const ParsedLine result = parseCommandLine(line);
    EXPECT_TRUE(result.options.has_value()) << result.error;
    const Options options = result.options.value_or(Options());
    EXPECT_EQ(options.command, Options::Command::kUsb);
    return options.usb;
}

std::string usageError(const Line& words) {
    Line line{"usb"};
    line.insert(line.end(), words.begin(), words.end());
    const ParsedLine result = parseCommandLine(line);
    EXPECT_FALSE(result.options.has_value());
    EXPECT_EQ(result.exitCode, kUsage);
    return result.error;
}

/** Every operation, in a form that is right, and what the manager is asked then. */
struct Operation {
    Line words;
    std::string call;
};

const std::vector<Operation> kOperations{
    {{"power", "2", "on"}, "setUsbPortPower 2 1"},
    {{"power", "0", "off"}, "setUsbPortPower 0 0"},
    {{"reset", "1"}, "resetUsbPort 1"},
    {{"role", "1"}, "usbDeviceIsActived 1"},
    {{"switch", "network"}, "switchUsbState 0"},
    {{"switch", "accessory"}, "switchUsbState 1"},
    {{"switch", "host-on"}, "switchUsbState 2"},
    {{"switch", "host-off"}, "switchUsbState 3"},
    {{"role-switch", "7"}, "appleDeviceRoleSwitch 7"},
    {{"carplay", "7"}, "isAppleCarplaySupport 7"},
    {{"aoa", "2147483647"}, "checkAoaModeSupport 2147483647"},
    {{"config", "scheme", "old-first"}, "configUsbEnumerateScheme 1"},
    {{"config", "scheme", "both"}, "configUsbEnumerateScheme 0"},
    {{"config", "default-mode", "apple,android-check", "on"}, "configDefaultMode 5 1"},
    {{"config", "default-mode", "android", "off"}, "configDefaultMode 2 0"},
    {{"config", "aoa-description", "/etc/aoa.xml"}, "configAoaDescription /etc/aoa.xml"},
    {{"config", "aoa-exclude", "A B"}, "aoaModeSwitchFilter A B"},
    {{"config", "aoa-timeout", "reset"}, "configAoaTimeoutAction 1"},
    {{"config", "aoa-timeout", "keep"}, "configAoaTimeoutAction 0"},
    {{"config", "iap-name", "list"}, "configAppleIapNodeName list"},
    {{"config", "ean-name", ""}, "configAppleEanNodeName "},
    {{"config", "ean-string", "com.maker"}, "configAppleEanStringName com.maker"},
    {{"config", "auto-role", "on"}, "configKernelAutoRoleSwitch 1"},
    {{"config", "auto-role", "off"}, "configKernelAutoRoleSwitch 0"},
    {{"test", "post", "6"}, "postTestMessage 6"},
    {{"test", "charging", "2"}, "getPortChargingMode 2"},
    {{"test", "charging", "2", "s"}, "switchPortChargingMode 2 2"},
    {{"test", "charging", "0", "c"}, "switchPortChargingMode 0 0"},
    {{"test", "hub-tier", "5"}, "setMaxHubTier 5"},
    {{"test", "refuse-class", "0xff"}, "addUnsupportedClass 255"},
    {{"test", "accept-class", "08"}, "removeUnsupportedClass 8"},
    {{"test", "mode"}, "getCertificationMode"},
    {{"test", "mode", "normal"}, "setCertificationMode 79"},
    {{"test", "mode", "logo"}, "setCertificationMode 77"},
    {{"test", "mode", "devices"}, "setCertificationMode 84"},
};

/** Notes what it is asked; answers as it is told. */
class Manager : public android::BnInterface<usb::IUsbManager> {
  public:
    std::string call;
    int answer = 0;
    /** What each walk through the list finds; the last one for ever. */
    std::vector<std::vector<sp<UsbDeviceItf>>> walks{{}};
    size_t walksBegun = 0;

    int startup() override { return note("startup"); }
    int shutdown() override { return note("shutdown"); }
    int addNotifier(const sp<IBinder>& ear) override { return note("addNotifier", ear); }
    int removeNotifier(const sp<IBinder>& ear) override { return note("removeNotifier", ear); }
    int addHostNotifier(const sp<IBinder>& ear) override { return note("addHostNotifier", ear); }
    int removeHostNotifier(const sp<IBinder>& ear) override { return note("removeHostNotifier", ear); }
    int configUsbEnumerateScheme(bool on) override { return note(__func__, on); }
    int configDefaultMode(int mask, bool on) override { return note(__func__, mask, on); }
    int checkAoaModeSupport(uint32_t id) override { return note(__func__, id); }
    int configAoaDescription(const char* text) override { return note(__func__, std::string(text)); }
    int aoaModeSwitchFilter(const char* text) override { return note(__func__, std::string(text)); }
    int configAoaTimeoutAction(bool on) override { return note(__func__, on); }
    int switchUsbState(int function) override { return note(__func__, function); }
    int configAppleIapNodeName(const char* text) override { return note(__func__, std::string(text)); }
    int configAppleEanNodeName(const char* text) override { return note(__func__, std::string(text)); }
    int configKernelAutoRoleSwitch(bool on) override { return note(__func__, on); }
    int appleDeviceRoleSwitch(int id) override { return note(__func__, id); }
    int isAppleCarplaySupport(uint32_t id) override { return note(__func__, id); }
    int configAppleEanStringName(const char* text) override { return note(__func__, std::string(text)); }
    int setUsbPortPower(int port, bool on) override { return note(__func__, port, on); }
    int resetUsbPort(int port) override { return note(__func__, port); }
    int getUsbDeviceCount() override {
        const size_t walk = std::min(walksBegun++, walks.size() - 1);
        mNow = walks[walk];
        return static_cast<int>(mNow.size());
    }
    sp<UsbDeviceItf> queryUsbDevice(int index) override { return mNow[static_cast<size_t>(index)]; }
    int usbDeviceIsActived(int port) override { return note(__func__, port); }
    int postTestMessage(int what) override { return note(__func__, what); }
    int switchPortChargingMode(int port, int mode) override { return note(__func__, port, mode); }
    int getPortChargingMode(int port) override { return note(__func__, port); }
    int setMaxHubTier(int tier) override { return note(__func__, tier); }
    int addUnsupportedClass(int code) override { return note(__func__, code); }
    int removeUnsupportedClass(int code) override { return note(__func__, code); }
    int setCertificationMode(int mode) override { return note(__func__, mode); }
    int getCertificationMode() override { return note(__func__); }

    /** Binders that were handed over, in order. */
    std::vector<sp<IBinder>> ears;
    std::vector<std::string> calls;

  private:
    static std::string text(const std::string& value) { return value; }
    std::string text(const sp<IBinder>& value) {
        ears.push_back(value);
        return "ear";
    }
    template <typename Number>
    static std::string text(Number value) {
        return std::to_string(value);
    }

    template <typename... Values>
    int note(const char* name, const Values&... values) {
        call = name;
        ((call += " " + text(values)), ...);
        calls.push_back(call);
        return answer;
    }

    std::vector<sp<UsbDeviceItf>> mNow;
};

std::vector<Event> eventsOf(EventQueue& queue) {
    queue.close();
    std::vector<Event> events;
    while (std::optional<Event> event = queue.pop()) {
        events.push_back(*event);
    }
    return events;
}

class UsbRender : public testing::Test {
  protected:
    void SetUp() override {
        setenv("TZ", "UTC", 1);  // NOLINT(concurrency-mt-unsafe): there is one thread.
        tzset();
    }

    static Event eventOf(Event::Kind kind, const sp<UsbDeviceItf>& subject = nullptr) {
        Event event;
        event.kind = kind;
        event.time = Event::Clock::time_point(std::chrono::microseconds(1'700'000'003'004'500));
        event.usbDevice = subject;
        event.code = 9;
        event.value = -3;
        return event;
    }
};

std::vector<uint32_t> idsOf(const std::vector<sp<UsbDeviceItf>>& devices) {
    std::vector<uint32_t> ids;
    ids.reserve(devices.size());
    for (const sp<UsbDeviceItf>& one : devices) {
        ids.push_back(one->getId());
    }
    return ids;
}

TEST(UsbCommandLine, EveryOperationReachesTheManager) {
    for (const Operation& operation : kOperations) {
        const sp<Manager> manager = new Manager();
        manager->answer = 42;
        EXPECT_EQ(askUsbManager(*manager, requested(operation.words)), 42) << operation.call;
        EXPECT_EQ(manager->call, operation.call);
    }
    EXPECT_EQ(requested({"list"}).operation, UsbOperation::kList);
}

TEST(UsbCommandLine, OptionsOfTheProgramStandAnywhere) {
    for (const Operation& operation : kOperations) {
        Line line{"usb"};
        line.insert(line.end(), operation.words.begin(), operation.words.end());
        for (size_t place = 0; place <= line.size(); ++place) {
            Line with = line;
            with.insert(with.begin() + static_cast<ptrdiff_t>(place), "--json");
            const ParsedLine result = parseCommandLine(with);
            ASSERT_TRUE(result.options.has_value()) << operation.call << place << result.error;
            EXPECT_EQ(result.options->format, Format::kJson);
            EXPECT_EQ(result.options->usb.operation, requested(operation.words).operation);
        }
    }
}

TEST(UsbCommandLine, WhatIsWrongIsSaid) {
    EXPECT_THAT(usageError({"power", "3", "on"}), HasSubstr("port from 0 to 2"));
    EXPECT_THAT(usageError({"power", "--", "-1", "on"}), HasSubstr("port from 0 to 2"));
    EXPECT_THAT(usageError({"power", "1", "On"}), HasSubstr("on or off"));
    EXPECT_THAT(usageError({"role", "2"}), HasSubstr("port 0 or 1"));
    EXPECT_THAT(usageError({"switch", "eap"}), HasSubstr("network, accessory"));
    EXPECT_THAT(usageError({"carplay", "0"}), HasSubstr("positive number"));
    EXPECT_THAT(usageError({"carplay", "4294967296"}), HasSubstr("positive number"));
    EXPECT_THAT(usageError({"config", "default-mode", "apple,", "on"}), HasSubstr("android-check"));
    EXPECT_THAT(usageError({"config", "default-mode", "", "on"}), HasSubstr("android-check"));
    EXPECT_THAT(usageError({"config", "aoa-description", "aoa.xml"}), HasSubstr("absolute path"));
    EXPECT_THAT(usageError({"test", "charging", "1", "x"}), HasSubstr("c, d or s"));
    EXPECT_THAT(usageError({"test", "refuse-class", "256"}), HasSubstr("0 to 255"));
    EXPECT_THAT(usageError({"test", "refuse-class", "0x-1"}), HasSubstr("0 to 255"));
    EXPECT_THAT(usageError({"test", "hub-tier", "8"}), HasSubstr("0 to 7"));
    EXPECT_THAT(usageError({"test", "mode", "M"}), HasSubstr("normal, logo"));
    for (const Line& line : std::vector<Line>{
             {}, {"config"}, {"test"}, {"power"}, {"power", "1"}, {"reset"}, {"list", "all"}, {"unplug"}}) {
        usageError(line);
    }
}

TEST(UsbCommandLine, EveryHelpSaysWhatItDoesToTheUnit) {
    for (const Operation& operation : kOperations) {
        Line line{"usb"};
        const size_t commands = operation.words[0] == "config" || operation.words[0] == "test" ? 2 : 1;
        line.insert(line.end(), operation.words.begin(),
                    operation.words.begin() + static_cast<ptrdiff_t>(commands));
        line.emplace_back("--help");
        const ParsedLine result = parseCommandLine(line);
        EXPECT_EQ(result.exitCode, kOk);
        const size_t options = result.output.find("Show help and exit");
        ASSERT_NE(options, std::string::npos) << operation.call;
        const size_t common = result.output.find("The options --json");
        ASSERT_NE(common, std::string::npos) << operation.call;
        EXPECT_GT(common - options, sizeof("Show help and exit") + 20) << operation.call;
    }
    const auto helpOf = [](const Line& line) { return parseCommandLine(line).output; };
    EXPECT_THAT(helpOf({"usb", "power", "--help"}), HasSubstr("as if it were unplugged"));
    EXPECT_THAT(helpOf({"usb", "config", "iap-name", "--help"}), HasSubstr("unquoted"));
}

TEST(UsbList, IsWalkedUntilTwoWalksAgree) {
    const sp<Manager> manager = new Manager();
    const sp<UsbDeviceItf> first = device(1, 1, 1, 0, 0, {});
    const sp<UsbDeviceItf> second = device(2, 1, 1, 0, 0, {});
    const sp<UsbDeviceItf> third = device(3, 1, 1, 0, 0, {});
    manager->walks = {{third, first}, {third, second, first}, {second, third, first}};
    EXPECT_THAT(idsOf(client::Lists::usbDevices(*manager)), ElementsAre(1, 2, 3));
    EXPECT_EQ(manager->walksBegun, 3U);
}

TEST(UsbList, EndsWhereADeviceIsGone) {
    const sp<Manager> manager = new Manager();
    manager->walks = {{keyboard(), nullptr, hub()}, {keyboard(), nullptr, hub()}};
    EXPECT_THAT(idsOf(client::Lists::usbDevices(*manager)), ElementsAre(3));
}

TEST(UsbList, OneThatChangesAllTheTimeIsShownAllTheSame) {
    const sp<Manager> manager = new Manager();
    manager->walks.clear();
    for (uint32_t id = 1; id < 100; ++id) {
        manager->walks.push_back({device(id, 1, 1, 0, 0, {})});
    }
    EXPECT_EQ(client::Lists::usbDevices(*manager).size(), 1U);
    EXPECT_EQ(manager->walksBegun, 10U);
}

TEST(UsbNamesTest, VendorsProductsAndClasses) {
    const UsbNames names = namesOf(kList);
    EXPECT_EQ(names.vendor(0x046d), "Logitech, Inc.");
    EXPECT_EQ(names.product(0x046d, 0xc31c), "Keyboard K120");
    EXPECT_EQ(names.classOf(0), "(Defined at Interface level)");
    EXPECT_EQ(names.classOf(9), "Hub");
    EXPECT_EQ(names.vendor(0x0100), "");
    EXPECT_EQ(names.product(0x9999, 0xc31c), "");
    EXPECT_EQ(names.product(0x046d, 0x0001), "");
    EXPECT_EQ(names.classOf(8), "");
}

TEST(UsbNamesTest, WithoutAListNothingHasAName) {
    EXPECT_EQ(UsbNames::load("/nonexistent/usb.ids").vendor(0x046d), "");
    EXPECT_EQ(namesOf("").vendor(0x046d), "");
    EXPECT_EQ(namesOf("046d\n046d \n046d Logitech\n04 6d  X\nC\nC 0\nC 0x  Y\n\t\n\tx\n").vendor(0x046d), "");
}

TEST_F(UsbRender, ListAsATable) {
    EXPECT_EQ(renderUsbDevices(Format::kHuman, {}, UsbNames()),
              "ID  BUS  NUMBER  POWER  CLASS  INTERFACES  NAME\n");
    EXPECT_EQ(renderUsbDevices(Format::kHuman, {keyboard(), hub()}, namesOf(kList)),
              "ID  BUS  NUMBER     POWER  CLASS                            INTERFACES         NAME\n"
              "3   1    046d:c31c  90 mA  00 (Defined at Interface level)  03/00/00 03/01/01  "
              "Logitech, Inc. Keyboard K120\n"
              "12  1    9999:0001  0 mA   09 Hub                           -                  "
              "Odd\\x1b[2J\\xff\n");
    EXPECT_THAT(renderUsbDevices(Format::kHuman, {hub()}, UsbNames()), HasSubstr("09     -           -\n"));
}

TEST_F(UsbRender, ListAsJson) {
    EXPECT_EQ(renderUsbDevices(Format::kJson, {}, UsbNames()), "{\"schemaVersion\":1,\"usb_devices\":[]}\n");
    EXPECT_EQ(
        renderUsbDevices(Format::kJson, {keyboard()}, namesOf(kList)),
        "{\"schemaVersion\":1,\"usb_devices\":[{\"id\":3,\"bus\":1,\"class\":0,\"subclass\":0,\"protocol\":0,"
        "\"vendor\":1133,"
        "\"product\":49948,\"max_power\":45,\"milliamperes\":90,\"interfaces\":[{\"class\":3,\"subclass\":0,"
        "\"protocol\":0},{\"class\":3,\"subclass\":1,\"protocol\":1}],\"class_name\":\"(Defined at Interface "
        "level)\",\"vendor_name\":\"Logitech, Inc.\",\"product_name\":\"Keyboard K120\"}]}\n");
    const Json nameless = Json::parse(renderUsbDevices(Format::kJson, {hub()}, namesOf(kList)));
    EXPECT_EQ(nameless["usb_devices"][0]["vendor_name"], "Odd\x1b[2J\xef\xbf\xbd");
    EXPECT_TRUE(nameless["usb_devices"][0]["product_name"].is_null());
}

TEST_F(UsbRender, Events) {
    const std::string columns =
        "usb                 id 3            bus 1 046d:c31c class 00 90 mA 03/00/00 03/01/01\n";
    EXPECT_EQ(renderEvent(Format::kHuman, eventOf(Event::Kind::kUsbAttached, keyboard()), true),
              "22:13:23.004  attached " + columns);
    EXPECT_EQ(renderEvent(Format::kHuman, eventOf(Event::Kind::kUsbDetached, keyboard()), false),
              "22:13:23.004  detached " + columns);
    EXPECT_EQ(renderEvent(Format::kHuman, eventOf(Event::Kind::kUsbEvent), false),
              "22:13:23.004  event    usb code 9, value -3\n");
    EXPECT_EQ(renderEvent(Format::kHuman, eventOf(Event::Kind::kUsbHostEvent), false),
              "22:13:23.004  event    usb host code 9, value -3\n");

    const Json attached =
        Json::parse(renderEvent(Format::kJson, eventOf(Event::Kind::kUsbAttached, keyboard()), false));
    EXPECT_EQ(attached["event"], "usb-attached");
    EXPECT_EQ(attached["id"], 3);
    EXPECT_EQ(attached["interfaces"].size(), 2U);
    EXPECT_EQ(
        Json::parse(renderEvent(Format::kJson, eventOf(Event::Kind::kUsbDetached, hub()), false))["event"],
        "usb-detached");
    EXPECT_EQ(
        renderEvent(Format::kJson, eventOf(Event::Kind::kUsbEvent), false),
        "{\"schemaVersion\":1,\"event\":\"usb-event\",\"time\":1700000003.0045,\"code\":9,\"value\":-3}\n");
    EXPECT_EQ(renderEvent(Format::kJson, eventOf(Event::Kind::kUsbHostEvent), false),
              "{\"schemaVersion\":1,\"event\":\"usb-host-event\",\"time\":1700000003.0045,\"code\":9,"
              "\"value\":-3}\n");
}

TEST_F(UsbRender, Answers) {
    const auto human = [](const Line& words, int answer) {
        return renderUsbAnswer(Format::kHuman, requested(words), answer);
    };
    const auto json = [](const Line& words, int answer) {
        return renderUsbAnswer(Format::kJson, requested(words), answer);
    };
    EXPECT_EQ(human({"power", "1", "on"}, 0), "");
    EXPECT_EQ(json({"power", "1", "on"}, 0), "{\"schemaVersion\":1,\"operation\":\"power\",\"result\":0}\n");
    EXPECT_EQ(human({"carplay", "4"}, 1), "yes\n");
    EXPECT_EQ(human({"carplay", "4"}, 0), "no\n");
    EXPECT_EQ(json({"aoa", "4"}, 1), "{\"schemaVersion\":1,\"operation\":\"aoa\",\"answer\":true}\n");
    EXPECT_EQ(json({"role", "0"}, 0), "{\"schemaVersion\":1,\"operation\":\"role\",\"answer\":false}\n");
    EXPECT_EQ(human({"test", "charging", "1"}, 0), "c\n");
    EXPECT_EQ(human({"test", "charging", "1"}, 2), "s\n");
    EXPECT_EQ(human({"test", "charging", "1"}, 3), "unknown\n");
    EXPECT_EQ(human({"test", "charging", "1"}, -1), "unknown\n");
    EXPECT_EQ(human({"test", "charging", "1", "d"}, 0), "");
    EXPECT_EQ(human({"test", "mode"}, 79), "normal\n");
    EXPECT_EQ(human({"test", "mode"}, 77), "logo\n");
    EXPECT_EQ(json({"test", "mode"}, 84),
              "{\"schemaVersion\":1,\"operation\":\"mode\",\"mode\":\"devices\"}\n");
}

TEST_F(UsbRender, Refusals) {
    const auto refusal = [](const Line& words, int answer) { return usbRefusal(requested(words), answer); };
    EXPECT_EQ(refusal({"power", "1", "on"}, 0), "");
    EXPECT_THAT(refusal({"power", "1", "on"}, -1), HasSubstr("answered -1"));
    EXPECT_EQ(refusal({"carplay", "4"}, 1), "");
    EXPECT_THAT(refusal({"carplay", "4"}, 0), HasSubstr("device 4"));
    EXPECT_THAT(refusal({"aoa", "4"}, 0), HasSubstr("device 4"));
    EXPECT_THAT(refusal({"role", "1"}, 0), HasSubstr("port 1"));
    EXPECT_EQ(refusal({"role-switch", "4"}, 0), "");
    EXPECT_EQ(refusal({"role-switch", "4"}, 5), "");
    EXPECT_THAT(refusal({"role-switch", "4"}, -9), HasSubstr("(-9)"));
    EXPECT_EQ(refusal({"config", "auto-role", "on"}, 1), "");
    EXPECT_THAT(refusal({"config", "auto-role", "on"}, 0), HasSubstr("answered 0"));
    EXPECT_THAT(refusal({"config", "aoa-description", "/x"}, -1), HasSubstr("cannot read /x"));
    EXPECT_THAT(refusal({"test", "post", "1"}, 1), HasSubstr("normal operation"));
    EXPECT_EQ(refusal({"test", "hub-tier", "1"}, 0), "");
    EXPECT_EQ(refusal({"test", "charging", "1"}, 3), "");
    EXPECT_THAT(refusal({"test", "charging", "1", "c"}, 1), HasSubstr("stored"));
    EXPECT_EQ(refusal({"test", "mode"}, 79), "");
}

TEST(UsbMonitor, RegistersBothEarsAndRemovesTheOneThatCanBeRemoved) {
    const sp<Manager> manager = new Manager();
    const sp<IBinder> ear = new UsbMonitorEar(new EventQueue());
    UsbMonitorEar::add(manager, ear);
    EXPECT_THAT(manager->calls, ElementsAre("addNotifier ear", "addHostNotifier ear"));
    EXPECT_EQ(manager->ears[0], ear);
    EXPECT_NE(manager->ears[1], ear);
    // The removal of a host notifier is one of a manager notifier over the wire, and the second would end the
    // daemon.
    UsbMonitorEar::remove(manager, ear);
    EXPECT_THAT(manager->calls, ElementsAre("addNotifier ear", "addHostNotifier ear", "removeNotifier ear"));
}

TEST(UsbMonitor, WhatIsHeardIsQueued) {
    const sp<EventQueue> queue = new EventQueue();
    const sp<Manager> manager = new Manager();
    UsbMonitorEar::add(manager, new UsbMonitorEar(queue));
    const auto events = android::interface_cast<usb::IUsbManagerNotifier>(manager->ears[0]);
    const auto devices = android::interface_cast<usb::IUsbHostNotifier>(manager->ears[1]);
    const sp<UsbDeviceItf> subject = keyboard();
    EXPECT_EQ(devices->onUsbDeviceAttached(subject), 0);
    EXPECT_EQ(events->onEvent(1, 2), 0);
    EXPECT_EQ(devices->onUsbDeviceDetached(subject), 0);
    EXPECT_EQ(devices->onEvent(3, 4), 0);
    const std::vector<Event> heard = eventsOf(*queue);
    ASSERT_EQ(heard.size(), 4U);
    EXPECT_EQ(heard[0].kind, Event::Kind::kUsbAttached);
    EXPECT_EQ(heard[0].usbDevice, subject);
    EXPECT_EQ(heard[1].kind, Event::Kind::kUsbEvent);
    EXPECT_EQ(heard[1].code, 1);
    EXPECT_EQ(heard[1].value, 2);
    EXPECT_EQ(heard[2].kind, Event::Kind::kUsbDetached);
    EXPECT_EQ(heard[3].kind, Event::Kind::kUsbHostEvent);
    EXPECT_EQ(heard[3].code, 3);
    EXPECT_EQ(heard[3].value, 4);
    for (const Event& event : heard) {
        EXPECT_TRUE(event.isFromDaemon());
        EXPECT_NE(event.time, Event::Clock::time_point());
    }
}

}  // namespace

}  // namespace devicectl
