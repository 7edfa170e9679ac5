# SPDX-License-Identifier: Apache-2.0
"""Each folder includes only what the table in docs/architecture.md allows it."""

from __future__ import annotations

import re

import tree

# Folder: the folders of the project whose headers it may include. platform/'s libraries are included by their
# own names, as a unit's would be.
MAY_INCLUDE = {
    "common": ("common",),
    "device": ("common", "device"),
    "usb": ("common", "usb"),
    "volume": ("common", "volume"),
    "client": ("client", "device", "usb", "volume"),
    "platform": ("platform",),
    "tools": ("tools", "client", "device", "usb", "volume"),
}
# The entry alone knows the services.
ENTRY = "common/main.cpp"
# What the client library installs; the convenience layer and the command line client see nothing else of the daemon.
CLIENT_HEADER = re.compile(
    r"^((device|usb|volume)/(I\w+|Bn\w+Notifier|\w+(Manager|Host)NotifierItf|Device(Itf)?|DeviceManagerItf|"
    r"UsbDevice(Itf)?|UsbConfig(Itf)?|UsbInterface(Itf)?|Volume(Itf)?|VolumeMbr)|client/(Client|Events|Lists))\.h$")
INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"]+)"', re.MULTILINE)


def complaint_about(path: str, included: str) -> str:
    folder = path.split("/")[0]
    target = included.split("/")[0]
    if not (tree.ROOT / included).exists():
        return f"{path}: includes \"{included}\", which is not a path from the project's root"
    if path == ENTRY:
        return ""
    if target not in MAY_INCLUDE[folder]:
        return f"{path}: {folder}/ may not include \"{included}\""
    if folder in ("tools", "client") and target != folder and not CLIENT_HEADER.match(included):
        return f"{path}: \"{included}\" is not a header of the client library"
    return ""


def main() -> None:
    complaints = []
    checked = 0
    for path in tree.files(".h", ".cpp", below=tree.PRODUCT):
        for included in INCLUDE.findall(tree.text_of(path)):
            checked += 1
            complaints.append(complaint_about(str(path), included))
    tree.finish([complaint for complaint in complaints if complaint], checked, "includes")


if __name__ == "__main__":
    main()
