// SPDX-License-Identifier: Apache-2.0
#include "bench/Datagrams.h"

#include <initializer_list>

namespace bench {

namespace {

std::string join(std::initializer_list<const char*> tokens) {
    std::string datagram;
    for (const char* token : tokens) {
        datagram += token;
        datagram += '\0';
    }
    return datagram;
}

}  // namespace

std::string blockEvent() {
    return join(
        {"add@/devices/platform/ehci-platform.1/usb1/1-1/1-1:1.0/host2/target2:0:0/2:0:0:0/block/sda/sda1",
         "ACTION=add",
         "DEVPATH=/devices/platform/ehci-platform.1/usb1/1-1/1-1:1.0/host2/target2:0:0/2:0:0:0/block/sda/"
         "sda1",
         "SUBSYSTEM=block", "MAJOR=8", "MINOR=1", "DEVNAME=sda1", "DEVTYPE=partition", "DISKSEQ=17",
         "PARTN=1", "PARTNAME=Music", "PARTUUID=0fc63daf-8483-4772-8e79-3d69d8477de4"});
}

std::string usbEvent() {
    return join({"add@/devices/platform/ehci-platform.1/usb1/1-1",
                 "ACTION=add",
                 "DEVPATH=/devices/platform/ehci-platform.1/usb1/1-1",
                 "SUBSYSTEM=usb",
                 "MAJOR=189",
                 "MINOR=5",
                 "DEVNAME=bus/usb/001/006",
                 "DEVTYPE=usb_device",
                 "PRODUCT=951/1666/110",
                 "TYPE=0/0/0",
                 "BUSNUM=001",
                 "DEVNUM=006",
                 "DRIVER=usb",
                 "OF_NAME=usb",
                 "OF_FULLNAME=/soc/usb@1c1a000",
                 "OF_COMPATIBLE_0=allwinner,sun8i-ehci",
                 "OF_COMPATIBLE_1=generic-ehci",
                 "OF_COMPATIBLE_N=2",
                 "OF_ALIAS_0=usb1",
                 "MODALIAS=usb:v0951p1666d0110dc00dsc00dp00"});
}

std::string withSeqnum(const std::string& event) {
    return event + std::string("SEQNUM=4711") + '\0';
}

}  // namespace bench
