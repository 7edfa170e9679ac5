// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "tools/devicectl/Screen.h"
#include "tools/devicectl/UsbTopology.h"
#include "tools/devicectl/WatchView.h"

namespace devicectl {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Life = ServiceState::Life;
using Lines = std::vector<std::string>;
using Ports = std::vector<uint32_t>;

namespace {

WatchModel someModel() {
    WatchModel model;
    model.services = {
        {"DeviceManager", Life::kAlive}, {"VolumeManager", Life::kAlive}, {"UsbManager", Life::kMissing}};
    model.controllers = {{"usb 0", "/devices/c1", true}, {"card 0", "/devices/c2", false}};
    model.usb = {
        {4, 1, {1, 2}, "46f4:0001", "Stick", 200, false}, {2, 1, {1}, "0409:55aa", "Hub", 100, true},
        {9, 2, {}, "05ac:12a8", "-", 500, false},         {5, 1, {2}, "0627:0001", "Keyboard", 0, false},
        {6, 1, {1, 10}, "0627:0002", "Mouse", 0, false},
    };
    model.volumes = {
        {"sda1", "MUSIC", "vfat", "/media/sda1", WatchModel::Usage{4ULL << 30, 1ULL << 30}},
        {"mmcblk0p1", "unknown", "unknown", "unknown", std::nullopt},
    };
    return model;
}

WatchWindow window(size_t rows = 40, size_t columns = 100, size_t first = 0) {
    return {rows, columns, first, 0, "12:34:56"};
}

TEST(WatchView, ShowsEverything) {
    EXPECT_THAT(
        renderWatch(Format::kHuman, someModel(), window()),
        ElementsAre(
            "devicectl watch  12:34:56",       //
            "Services",                        //
            "  DeviceManager  alive",          //
            "  VolumeManager  alive",          //
            "  UsbManager     missing",        //
            "",                                //
            "Controllers",                     //
            "  usb 0   present  /devices/c1",  //
            "  card 0  absent   /devices/c2",  //
            "",                                //
            "USB",                             //
            "  bus 1",                         //
            "    port 1  0409:55aa  Hub  id 2, 100 mA", "      port 1.2  46f4:0001  Stick  id 4, 200 mA",
            "      port 1.10  0627:0002  Mouse  id 6, 0 mA", "    port 2  0627:0001  Keyboard  id 5, 0 mA",
            "  bus 2",  //
            "    port ?  05ac:12a8  -  id 9, 500 mA",
            "",         //
            "Volumes",  //
            "  sda1       vfat  /media/sda1  [#####...............]  25%  1.0 GiB of 4.0 GiB  MUSIC",
            "  mmcblk0p1  -     -            not mounted  -",  //
            "q quits"));
}

TEST(WatchView, AnEmptyModelIsAPictureToo) {
    EXPECT_THAT(renderWatch(Format::kHuman, WatchModel(), window()),
                ElementsAre("devicectl watch  12:34:56", "Services", "", "Controllers", "  -", "", "USB",
                            "  -", "", "Volumes", "  -", "q quits"));
}

TEST(WatchView, FitsEveryTerminal) {
    for (size_t rows = 0; rows < 30; ++rows) {
        for (const size_t columns : {0U, 1U, 7U, 20U, 80U}) {
            for (const size_t first : {0U, 3U, 1000U}) {
                for (const Format format : {Format::kHuman, Format::kColor}) {
                    const Lines lines = renderWatch(format, someModel(), window(rows, columns, first));
                    EXPECT_LE(lines.size(), rows);
                    for (const std::string& line : lines) {
                        EXPECT_TRUE(format == Format::kColor || line.size() <= columns) << line;
                    }
                }
            }
        }
    }
}

TEST(WatchView, ColorsChangeNoCharacter) {
    for (const size_t columns : {5U, 31U, 100U}) {
        const Lines plain = renderWatch(Format::kHuman, someModel(), window(40, columns));
        Lines colored = renderWatch(Format::kColor, someModel(), window(40, columns));
        ASSERT_EQ(plain.size(), colored.size());
        EXPECT_NE(plain, colored);
        for (size_t i = 0; i < plain.size(); ++i) {
            std::string bare;
            for (size_t at = 0; at < colored[i].size(); ++at) {
                if (colored[i][at] == '\x1b') {
                    at = colored[i].find('m', at);
                } else {
                    bare += colored[i][at];
                }
            }
            EXPECT_EQ(bare, plain[i]);
        }
    }
}

TEST(WatchView, Scrolls) {
    const WatchModel model = someModel();
    EXPECT_EQ(lastFirstLine(model, 40), 0U);
    const size_t last = lastFirstLine(model, 10);
    EXPECT_EQ(last, 13U);
    const Lines top = renderWatch(Format::kHuman, model, window(10));
    ASSERT_EQ(top.size(), 10U);
    EXPECT_EQ(top[1], "Services");
    EXPECT_EQ(top[9], "q quits  j, k and arrows scroll; 13 more lines");
    const Lines bottom = renderWatch(Format::kHuman, model, window(10, 100, last));
    EXPECT_THAT(bottom[8], HasSubstr("mmcblk0p1"));
    EXPECT_EQ(renderWatch(Format::kHuman, model, window(10, 100, last + 7)), bottom) << "never past the end";
}

TEST(WatchView, SaysSinceWhenThereIsNoAnswer) {
    WatchWindow silent = window();
    silent.silentSeconds = 7;
    EXPECT_EQ(renderWatch(Format::kHuman, someModel(), silent)[0],
              "devicectl watch  12:34:56  no answer for 7 s");
}

TEST(WatchView, WhatAMediumSaysReachesNoTerminalRaw) {
    WatchModel model = someModel();
    model.volumes[0].label = "\x1b]0;t\x07\n\xff\xe2\x80\xae";
    model.volumes[0].format = "\x1b[2J";
    model.controllers[0].path = "/\x9b";
    for (const std::string& line : renderWatch(Format::kHuman, model, window(40, 300))) {
        for (const unsigned char byte : line) {
            EXPECT_TRUE(byte >= 0x20 && byte < 0x7f) << line;
        }
    }
}

TEST(WatchView, UsageOfOddSizes) {
    const auto usageLine = [](uint64_t total, uint64_t used) {
        WatchModel model;
        model.volumes = {{"a", "l", "f", "p", WatchModel::Usage{total, used}}};
        return renderWatch(Format::kHuman, model, window())[10];
    };
    EXPECT_THAT(usageLine(0, 0), HasSubstr("[....................]   0%  0 B of 0 B"));
    EXPECT_THAT(usageLine(100, 100), HasSubstr("[####################] 100%"));
    EXPECT_THAT(usageLine(100, 400), HasSubstr("[####################] 100%"));
    EXPECT_THAT(usageLine(UINT64_MAX, UINT64_MAX / 2), HasSubstr("  50%  8.0 EiB of 16.0 EiB"));
    EXPECT_EQ(sizeText(1023), "1023 B");
    EXPECT_EQ(sizeText(1024), "1.0 KiB");
    EXPECT_EQ(sizeText(500ULL << 20), "500 MiB");
}

TEST(WatchView, CharactersAreClippedWhole) {
    WatchModel model;
    model.volumes = {{"\xc3\xbc\xc3\xbc\xc3\xbc", "", "", "", std::nullopt}};
    EXPECT_EQ(renderWatch(Format::kHuman, model, window(40, 4))[10], "  \xc3\xbc\xc3\xbc");
}

/** A folder as the kernel's, which goes with the test. */
class Topology : public testing::Test {
  protected:
    void SetUp() override {
        std::string path = "/tmp/usb-places-XXXXXX";
        ASSERT_NE(mkdtemp(path.data()), nullptr);
        mFolder = path;
    }
    void TearDown() override { std::filesystem::remove_all(mFolder); }

    void add(const std::string& name, const std::string& vendor, const std::string& product) {
        std::filesystem::create_directory(mFolder / name);
        std::ofstream(mFolder / name / "idVendor") << vendor;
        std::ofstream(mFolder / name / "idProduct") << product;
    }

    std::filesystem::path mFolder;
};

TEST_F(Topology, ReadsDevicesAndTheirPorts) {
    add("usb1", "1d6b\n", "0002\n");
    add("2-1", "aaaa\n", "0003\n");
    add("1-1.10", "46f4\n", "0001\n");
    add("1-1.2", "46f4\n", "0001\n");
    add("1-1", "0409\n", "55aa\n");
    add("1-1:1.0", "0409\n", "55aa\n");
    add("1-", "0409\n", "55aa\n");
    add("1-x", "0409\n", "55aa\n");
    add("1-7", "", "55aa\n");
    std::filesystem::create_directory(mFolder / "1-8");

    std::vector<UsbPlace> places = readUsbPlaces(mFolder);
    ASSERT_EQ(places.size(), 4U);
    EXPECT_EQ(places[0].ports, (Ports{1}));
    EXPECT_EQ(places[1].ports, (Ports{1, 2}));
    EXPECT_EQ(places[2].ports, (Ports{1, 10}));
    EXPECT_EQ(places[3].bus, 2U);

    EXPECT_EQ(takePlace(&places, 1, 0x46f4, 1), (Ports{1, 2}));
    EXPECT_EQ(takePlace(&places, 1, 0x46f4, 1), (Ports{1, 10}));
    EXPECT_THAT(takePlace(&places, 1, 0x46f4, 1), IsEmpty()) << "each place once";
    EXPECT_THAT(takePlace(&places, 2, 0x0409, 0x55aa), IsEmpty()) << "on another bus";
    EXPECT_EQ(places.size(), 2U);
}

TEST_F(Topology, AFolderThatIsNotThereHoldsNothing) {
    EXPECT_THAT(readUsbPlaces(mFolder / "none"), IsEmpty());
}

/** A terminal: what a program writes to it, and its state. */
class Terminal : public testing::Test {
  protected:
    void SetUp() override { ASSERT_EQ(openpty(&mMaster, &mSlave, nullptr, nullptr, nullptr), 0); }
    void TearDown() override {
        close(mMaster);
        close(mSlave);
    }

    /** What came up to @p end and with it; the kernel takes a moment. All that came in ten seconds if that
     * does not. */
    std::string shownUntil(const std::string& end) {
        constexpr int kLimitMs = 10000;
        std::array<char, 4096> block{};
        pollfd source{mMaster, POLLIN, 0};
        while (mShown.find(end) == std::string::npos && poll(&source, 1, kLimitMs) > 0) {
            const ssize_t count = read(mMaster, block.data(), block.size());
            if (count <= 0) {
                break;
            }
            mShown.append(block.data(), static_cast<size_t>(count));
        }
        const size_t found = mShown.find(end);
        const std::string text = mShown.substr(0, found == std::string::npos ? found : found + end.size());
        mShown.erase(0, text.size());
        return text;
    }

    tcflag_t localModes() const {
        termios state{};
        EXPECT_EQ(tcgetattr(mSlave, &state), 0);
        return state.c_lflag & static_cast<tcflag_t>(ICANON | ECHO | ISIG);
    }

    int mMaster = -1;
    int mSlave = -1;
    std::string mShown;  ///< and not yet looked at
};

TEST_F(Terminal, IsTakenAndGivenBack) {
    const tcflag_t before = localModes();
    ASSERT_NE(before, 0U);
    {
        Screen screen(mSlave, mSlave);
        ASSERT_EQ(screen.enter(), 0);
        EXPECT_EQ(localModes(), 0U);
        EXPECT_THAT(shownUntil("\x1b[2J"), HasSubstr("\x1b[?1049h"));
        ASSERT_EQ(screen.show({"one", "two"}), 0);
        // The terminal adds a return of its own before each newline.
        EXPECT_EQ(shownUntil("\x1b[J"), "\x1b[Hone\x1b[K\r\r\ntwo\x1b[K\x1b[J");
        screen.leave();
        EXPECT_EQ(localModes(), before);
        EXPECT_THAT(shownUntil("\x1b[?1049l"), HasSubstr("\x1b[?25h\x1b[?1049l"));
        ASSERT_EQ(screen.enter(), 0) << "as after a stop";
    }
    EXPECT_EQ(localModes(), before);
    EXPECT_THAT(shownUntil("\x1b[?1049l"), HasSubstr("\x1b[?25h\x1b[?1049l"));
}

TEST_F(Terminal, IsGivenBackByAFault) {
    const tcflag_t before = localModes();
    for (const int fault : {SIGABRT, SIGSEGV, SIGBUS}) {
        const pid_t child = fork();
        if (child == 0) {
            std::freopen("/dev/null", "w", stderr);
            Screen screen(mSlave, mSlave);
            if (screen.enter() != 0) {
                _exit(1);
            }
            raise(fault);
            _exit(2);
        }
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == fault) << status;
        EXPECT_EQ(localModes(), before);
        EXPECT_THAT(shownUntil("\x1b[?1049l"), HasSubstr("\x1b[?25h\x1b[?1049l"));
    }
}

TEST_F(Terminal, TellsItsSize) {
    const Screen screen(mSlave, mSlave);
    EXPECT_EQ(screen.size().rows, 24U) << "where it does not know";
    EXPECT_EQ(screen.size().columns, 80U);
    const winsize size{11, 33, 0, 0};
    ASSERT_EQ(ioctl(mMaster, TIOCSWINSZ, &size), 0);
    EXPECT_EQ(screen.size().rows, 11U);
    EXPECT_EQ(screen.size().columns, 33U);
}

TEST_F(Terminal, ThatIsNoneIsAnError) {
    const int file = open("/dev/null", O_RDWR | O_CLOEXEC);
    Screen screen(file, file);
    EXPECT_NE(screen.enter(), 0);
    close(file);
}

}  // namespace

}  // namespace devicectl
