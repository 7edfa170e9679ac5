// SPDX-License-Identifier: Apache-2.0
#include "tools/devicectl/Render.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <time.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "device/Device.h"
#include "volume/Volume.h"

namespace devicectl {

using android::sp;
using android::String8;
using android::Vector;
using device::Device;
using device::DeviceItf;
using volume::Volume;
using volume::VolumeItf;
using Json = nlohmann::json;

namespace {

sp<DeviceItf> disk() {
    const sp<Device> device = new Device();
    device->setPath("/devices/usb1/block/sda");
    device->setSubsystem("block");
    device->addParam("DEVNAME", "sda");
    device->addParam("DEVTYPE", "disk");
    return device;
}

/** A device of which every text tries to harm. */
sp<DeviceItf> hostile() {
    const sp<Device> device = new Device();
    device->setPath("/devices/\x1b]0;title\x07/\xff\xfe");
    device->setSubsystem("bl\nock");
    device->addParam("DEVNAME",
                     "s\x1b[31md\xc2\x9b"
                     "a");
    device->addParam(
        "K\x1b"
        "EY\"",
        "\"}\n{\"event\":\"forged\"}\xe2\x80\xae\x7f");
    return device;
}

sp<VolumeItf> stick() {
    return new Volume(String8("sda1"), String8("0badcafe-01-55AA-0F0F"), String8("MUSIC"), String8("vfat"),
                      String8("/media/sda1"), String8("/dev/sda1"), String8("/mnt/sda1"),
                      String8("/dev/sda"));
}

/** What a disk becomes that cannot be read. */
sp<VolumeItf> unreadable() {
    const sp<Volume> record = new Volume();
    record->setName(String8("mmcblk0"));
    record->setDevicePath(String8("/dev/mmcblk0"));
    record->setLabel(String8());
    return record;
}

/** A medium made to hurt. */
sp<VolumeItf> hostileVolume() {
    const String8 label("\x1b]0;t\x07\n\"}\n{\"event\":\"forged\"}\xff\xe2\x80\xae$(reboot)");
    return new Volume(String8("sdb1"), label, label, label, String8("/media/sdb1"), String8("/dev/sdb1"),
                      String8("/mnt/sdb1"), String8("/dev/sdb"));
}

Event eventOf(Event::Kind kind, const sp<DeviceItf>& device = nullptr) {
    Event event;
    event.kind = kind;
    event.time = Event::Clock::time_point(std::chrono::microseconds(1'700'000'003'004'500));
    event.device = device;
    event.service = "DeviceManager";
    return event;
}

Event volumeEvent(Event::Kind kind, const sp<VolumeItf>& volume) {
    Event event = eventOf(kind);
    event.volume = volume;
    return event;
}

/** The object on @p text's one line; fails the test if there is anything else. */
Json oneObject(const std::string& text) {
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1);
    EXPECT_EQ(text.back(), '\n');
    EXPECT_TRUE(std::all_of(text.begin(), text.end() - 1, [](unsigned char c) {
        return c >= 0x20 && c < 0x7f;
    })) << text;
    Json json = Json::parse(text, nullptr, false);
    EXPECT_TRUE(json.is_object()) << text;
    return json;
}

class Render : public testing::Test {
  protected:
    void SetUp() override {
        setenv("TZ", "UTC", 1);  // NOLINT(concurrency-mt-unsafe): there is one thread.
        tzset();
    }
};

TEST_F(Render, ArrivalAsJson) {
    EXPECT_EQ(renderEvent(Format::kJson, eventOf(Event::Kind::kDeviceAdded, disk()), false),
              "{\"schemaVersion\":1,\"event\":\"device-added\",\"time\":1700000003.0045,\"path\":\"/devices/"
              "usb1/block/sda\","
              "\"subsystem\":\"block\",\"params\":{\"DEVNAME\":\"sda\",\"DEVTYPE\":\"disk\"}}\n");
}

TEST_F(Render, RemovalAsJson) {
    const Json json =
        oneObject(renderEvent(Format::kJson, eventOf(Event::Kind::kDeviceRemoved, disk()), false));
    EXPECT_EQ(json["event"], "device-removed");
    EXPECT_EQ(json["params"]["DEVNAME"], "sda");
}

TEST_F(Render, ManagerEventAsJson) {
    Event event = eventOf(Event::Kind::kDeviceEvent);
    event.code = -7;
    event.value = 2147483647;
    EXPECT_EQ(renderEvent(Format::kJson, event, false),
              "{\"schemaVersion\":1,\"event\":\"device-event\",\"time\":1700000003.0045,\"code\":-7,"
              "\"value\":2147483647}\n");
}

TEST_F(Render, ServiceEventsAsJson) {
    EXPECT_EQ(renderEvent(Format::kJson, eventOf(Event::Kind::kServiceUp), false),
              "{\"schemaVersion\":1,\"event\":\"service\",\"time\":1700000003.0045,\"service\":"
              "\"DeviceManager\",\"state\":\"up\"}\n");
    EXPECT_EQ(oneObject(renderEvent(Format::kJson, eventOf(Event::Kind::kServiceDown), false))["state"],
              "down");
}

TEST_F(Render, DeviceWithoutPropertiesAsJson) {
    const sp<DeviceItf> bare = new Device();
    EXPECT_EQ(renderDevice(Format::kJson, bare),
              "{\"schemaVersion\":1,\"device\":{\"path\":\"\",\"subsystem\":\"\",\"params\":{}}}\n");
}

TEST_F(Render, EventsForReaders) {
    const std::string columns = "block/disk          sda             /devices/usb1/block/sda\n";
    EXPECT_EQ(renderEvent(Format::kHuman, eventOf(Event::Kind::kDeviceAdded, disk()), false),
              "22:13:23.004  added    " + columns);
    EXPECT_EQ(renderEvent(Format::kHuman, eventOf(Event::Kind::kDeviceRemoved, disk()), true),
              "22:13:23.004  removed  " + columns);
    EXPECT_EQ(renderEvent(Format::kHuman, eventOf(Event::Kind::kDeviceAdded, disk()), true),
              "22:13:23.004  added    " + columns + "    DEVNAME=sda\n    DEVTYPE=disk\n");
    EXPECT_EQ(renderEvent(Format::kHuman, eventOf(Event::Kind::kDeviceEvent), false),
              "22:13:23.004  event    code 0, value 0\n");
    EXPECT_EQ(renderEvent(Format::kHuman, eventOf(Event::Kind::kServiceUp), false),
              "22:13:23.004  service  DeviceManager reports to this monitor\n");
    EXPECT_EQ(renderEvent(Format::kHuman, eventOf(Event::Kind::kServiceDown), false),
              "22:13:23.004  service  DeviceManager died; waiting for its return\n");
}

TEST_F(Render, DeviceWithoutNodeHasADash) {
    const sp<Device> device = new Device();
    device->setPath("/devices/usb1/1-1/1-1:1.0");
    device->setSubsystem("usb");
    EXPECT_EQ(renderEvent(Format::kHuman, eventOf(Event::Kind::kDeviceAdded, device), false),
              "22:13:23.004  added    usb                 -               /devices/usb1/1-1/1-1:1.0\n");
}

TEST_F(Render, DeviceForReaders) {
    EXPECT_EQ(renderDevice(Format::kHuman, disk()),
              "path       /devices/usb1/block/sda\nsubsystem  block\n    DEVNAME=sda\n    DEVTYPE=disk\n");
}

TEST_F(Render, NoDevice) {
    EXPECT_EQ(renderDevice(Format::kHuman, nullptr), "");
    EXPECT_EQ(renderDevice(Format::kJson, nullptr), "{\"schemaVersion\":1,\"device\":null}\n");
}

TEST_F(Render, ListOfDevices) {
    Vector<sp<DeviceItf>> devices;
    EXPECT_EQ(renderDevices(Format::kHuman, devices), "");
    EXPECT_EQ(renderDevices(Format::kJson, devices), "{\"schemaVersion\":1,\"devices\":[]}\n");
    devices.add(disk());
    devices.add(hostile());
    EXPECT_EQ(oneObject(renderDevices(Format::kJson, devices))["devices"].size(), 2U);
    const std::string text = renderDevices(Format::kHuman, devices);
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 2);
}

TEST_F(Render, Controller) {
    EXPECT_EQ(renderController(Format::kHuman, 1, 2, "/devices/c"), "/devices/c\n");
    EXPECT_EQ(renderController(Format::kJson, 1, 2, "/devices/c"),
              "{\"schemaVersion\":1,\"controller\":{\"type\":1,\"id\":2,\"path\":\"/devices/c\"}}\n");
    EXPECT_EQ(renderController(Format::kHuman, 9, -1, ""), "");
    EXPECT_EQ(renderController(Format::kJson, 9, -1, ""),
              "{\"schemaVersion\":1,\"controller\":{\"type\":9,\"id\":-1,\"path\":null}}\n");
}

TEST_F(Render, VolumesAsATable) {
    Vector<sp<VolumeItf>> volumes;
    EXPECT_EQ(renderVolumes(Format::kHuman, volumes),
              "NAME  LABEL  FORMAT  IDENTITY  MOUNT PATH  ACCESS PATH  DEVICE  DISK\n");
    volumes.add(unreadable());
    volumes.add(stick());
    EXPECT_EQ(
        renderVolumes(Format::kHuman, volumes),
        "NAME     LABEL  FORMAT  IDENTITY               MOUNT PATH  ACCESS PATH  DEVICE        DISK\n"
        "mmcblk0  -      -       -                      -           -            /dev/mmcblk0  -\n"
        "sda1     MUSIC  vfat    0badcafe-01-55AA-0F0F  /mnt/sda1   /media/sda1  /dev/sda1     /dev/sda\n");
}

TEST_F(Render, ColumnsCountCharactersNotBytes) {
    Vector<sp<VolumeItf>> volumes;
    const sp<Volume> record = new Volume();
    record->setName(String8("sda1"));
    record->setLabel(String8("Musik f\xc3\xbcr dich"));
    volumes.add(record);
    EXPECT_EQ(renderVolumes(Format::kHuman, volumes),
              "NAME  LABEL           FORMAT  IDENTITY  MOUNT PATH  ACCESS PATH  DEVICE  DISK\n"
              "sda1  Musik f\xc3\xbcr dich  -       -         -           -            -       -\n");
}

TEST_F(Render, VolumesAsJson) {
    Vector<sp<VolumeItf>> volumes;
    EXPECT_EQ(renderVolumes(Format::kJson, volumes), "{\"schemaVersion\":1,\"volumes\":[]}\n");
    volumes.add(stick());
    EXPECT_EQ(renderVolumes(Format::kJson, volumes),
              "{\"schemaVersion\":1,\"volumes\":[{\"name\":\"sda1\",\"label\":\"MUSIC\",\"format\":\"vfat\","
              "\"identity\":\"0badcafe-01-55AA-0F0F\",\"mount_path\":\"/mnt/sda1\","
              "\"access_path\":\"/media/sda1\",\"device\":\"/dev/sda1\",\"disk\":\"/dev/sda\"}]}\n");
    volumes.add(unreadable());
    const Json json = oneObject(renderVolumes(Format::kJson, volumes));
    EXPECT_EQ(json["volumes"][1]["mount_path"], "unknown");
}

TEST_F(Render, VolumeEventsAsJson) {
    EXPECT_EQ(renderEvent(Format::kJson, volumeEvent(Event::Kind::kVolumeAdded, stick()), false),
              "{\"schemaVersion\":1,\"event\":\"volume-added\",\"time\":1700000003.0045,\"name\":\"sda1\","
              "\"label\":\"MUSIC\","
              "\"format\":\"vfat\",\"identity\":\"0badcafe-01-55AA-0F0F\",\"mount_path\":\"/mnt/sda1\","
              "\"access_path\":\"/media/sda1\",\"device\":\"/dev/sda1\",\"disk\":\"/dev/sda\"}\n");
    EXPECT_EQ(oneObject(renderEvent(Format::kJson, volumeEvent(Event::Kind::kVolumeRemoved, stick()),
                                    false))["event"],
              "volume-removed");
    Event event = eventOf(Event::Kind::kVolumeEvent);
    event.code = 3;
    event.value = -4;
    EXPECT_EQ(renderEvent(Format::kJson, event, false),
              "{\"schemaVersion\":1,\"event\":\"volume-event\",\"time\":1700000003.0045,\"code\":3,\"value\":"
              "-4}\n");
}

TEST_F(Render, VolumeEventsForReaders) {
    const std::string columns =
        "volume              sda1            /media/sda1     vfat 0badcafe-01-55AA-0F0F MUSIC\n";
    EXPECT_EQ(renderEvent(Format::kHuman, volumeEvent(Event::Kind::kVolumeAdded, stick()), false),
              "22:13:23.004  added    " + columns);
    EXPECT_EQ(renderEvent(Format::kHuman, volumeEvent(Event::Kind::kVolumeRemoved, stick()), true),
              "22:13:23.004  removed  " + columns);
    EXPECT_EQ(renderEvent(Format::kHuman, volumeEvent(Event::Kind::kVolumeAdded, stick()), true),
              "22:13:23.004  added    " + columns +
                  "    name=sda1\n    label=MUSIC\n    format=vfat\n    identity=0badcafe-01-55AA-0F0F\n"
                  "    mount_path=/mnt/sda1\n    access_path=/media/sda1\n    device=/dev/sda1\n"
                  "    disk=/dev/sda\n");
    EXPECT_EQ(renderEvent(Format::kHuman, volumeEvent(Event::Kind::kVolumeAdded, unreadable()), false),
              "22:13:23.004  added    volume              mmcblk0         -               - - -\n");
    EXPECT_EQ(renderEvent(Format::kHuman, eventOf(Event::Kind::kVolumeEvent), false),
              "22:13:23.004  event    volume code 0, value 0\n");
}

TEST_F(Render, HostileLabelsStayInTheirFields) {
    const sp<VolumeItf> record = hostileVolume();
    const Json json =
        oneObject(renderEvent(Format::kJson, volumeEvent(Event::Kind::kVolumeAdded, record), false));
    EXPECT_EQ(json["event"], "volume-added");
    EXPECT_EQ(json["label"], "\x1b]0;t\x07\n\"}\n{\"event\":\"forged\"}\xef\xbf\xbd\xe2\x80\xae$(reboot)");
    EXPECT_EQ(json["access_path"], "/media/sdb1");

    Vector<sp<VolumeItf>> volumes;
    volumes.add(record);
    EXPECT_EQ(oneObject(renderVolumes(Format::kJson, volumes))["volumes"].size(), 1U);
    const std::string event =
        renderEvent(Format::kHuman, volumeEvent(Event::Kind::kVolumeAdded, record), true);
    const std::string table = renderVolumes(Format::kHuman, volumes);
    for (const std::string& text : {event, table}) {
        EXPECT_TRUE(std::none_of(text.begin(), text.end(), [](unsigned char c) {
            return (c < 0x20 && c != '\n') || c >= 0x7f;
        })) << text;
    }
    EXPECT_EQ(std::count(event.begin(), event.end(), '\n'), 9) << "one for the event, one for each attribute";
    EXPECT_EQ(std::count(table.begin(), table.end(), '\n'), 2) << "one for the heading, one for the volume";
}

TEST_F(Render, Actions) {
    const std::vector<ManagerAction> actions{{"device", "DeviceManager", 0}, {"other", "OtherManager", -1}};
    EXPECT_EQ(renderActions(Format::kHuman, "start", actions), "device: started\n");
    EXPECT_EQ(renderActions(Format::kHuman, "stop", actions), "device: stopped\n");
    EXPECT_EQ(renderActions(Format::kJson, "stop", actions),
              "{\"schemaVersion\":1,\"action\":\"stop\",\"managers\":[{\"name\":\"device\",\"service\":"
              "\"DeviceManager\",\"result\":0},"
              "{\"name\":\"other\",\"service\":\"OtherManager\",\"result\":-1}]}\n");
}

TEST_F(Render, Dump) {
    EXPECT_EQ(renderDump(Format::kHuman, "S", {}, "-[x]-\n\tline\n\x1b[0m\xff"),
              "-[x]-\n\tline\n\\x1b[0m\\xff");
    EXPECT_EQ(
        renderDump(Format::kJson, "S", {"a", "b"}, "1\n\xff"),
        "{\"schemaVersion\":1,\"service\":\"S\",\"arguments\":[\"a\",\"b\"],\"text\":\"1\\n\\ufffd\"}\n");
    EXPECT_EQ(renderDump(Format::kHuman, "S", {}, ""), "");
}

TEST_F(Render, Services) {
    const std::vector<ServiceState> services{{"DeviceManager", ServiceState::Life::kAlive},
                                             {"Other", ServiceState::Life::kDead},
                                             {"\x1b", ServiceState::Life::kSilent}};
    EXPECT_EQ(renderServices(Format::kHuman, services),
              "DeviceManager  alive\nOther          dead\n\\x1b           silent\n");
    const Json list = oneObject(renderServices(Format::kJson, services))["services"];
    EXPECT_EQ(list[0], (Json{{"name", "DeviceManager"}, {"state", "alive"}}));
    EXPECT_EQ(list[1]["state"], "dead");
    EXPECT_EQ(list[2], (Json{{"name", "\x1b"}, {"state", "silent"}}));
    EXPECT_EQ(renderServices(Format::kHuman, {}), "");
    const std::vector<ServiceState> foreign{{"Gerätedienst", ServiceState::Life::kAlive},
                                            {"Other", ServiceState::Life::kDead}};
    EXPECT_EQ(renderServices(Format::kHuman, foreign), "Gerätedienst  alive\nOther         dead\n")
        << "columns of characters, not of bytes";
    EXPECT_EQ(renderServices(Format::kJson, {}), "{\"schemaVersion\":1,\"services\":[]}\n");
}

TEST_F(Render, HostileTextsStayInTheirFields) {
    const Json json =
        oneObject(renderEvent(Format::kJson, eventOf(Event::Kind::kDeviceAdded, hostile()), false));
    EXPECT_EQ(json["event"], "device-added");
    EXPECT_EQ(json["subsystem"], "bl\nock");
    EXPECT_EQ(json["params"]["K\x1b"
                             "EY\""],
              "\"}\n{\"event\":\"forged\"}\xe2\x80\xae\x7f");
    EXPECT_EQ(json["path"], "/devices/\x1b]0;title\x07/\xef\xbf\xbd\xef\xbf\xbd");
    oneObject(renderDevice(Format::kJson, hostile()));
}

TEST_F(Render, HostileTextsDoNotReachTheTerminal) {
    for (const std::string& text :
         {renderEvent(Format::kHuman, eventOf(Event::Kind::kDeviceAdded, hostile()), true),
          renderDevice(Format::kHuman, hostile())}) {
        EXPECT_TRUE(std::none_of(text.begin(), text.end(), [](unsigned char c) {
            return (c < 0x20 && c != '\n') || c >= 0x7f;
        })) << text;
    }
    const std::string event =
        renderEvent(Format::kHuman, eventOf(Event::Kind::kDeviceAdded, hostile()), true);
    EXPECT_EQ(std::count(event.begin(), event.end(), '\n'), 3) << "one for the event, one for each property";
}

}  // namespace

}  // namespace devicectl
