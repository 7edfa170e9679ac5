# SPDX-License-Identifier: Apache-2.0
"""USB peripherals that answer: what each is and what it says to the requests that the daemon makes.

They are played by vm/guest/usbplayer.py on the guest's virtual host controller, which the emulator's own
peripherals cannot be: nobody would answer a vendor's request there.
"""

from __future__ import annotations

from dataclasses import dataclass
from typing import Any

from .errors import HeadunitError

APPLE = 0x05AC
GOOGLE = 0x18D1
CERTIFICATION = 6666

# Control requests: type and number. To a phone of Apple: take the other role (its value chooses how), and tell
# whether the other role can be had with CarPlay. To an Android phone: tell the accessory protocol's version.
ROLE_SWITCH = (0x40, 0x51)
CARPLAY_SUPPORT = (0xC0, 0x53)
ACCESSORY_PROTOCOL = (0xC0, 0x33)

CERTIFICATION_PRODUCTS = (*range(257, 265), 513, 514)

# How a peripheral treats the requests that it knows. An unknown request stalls, as on every device.
MANNERS = {
    "plain": "answers as it should",
    "no": "answers that it does not support it",
    "short": "answers a support query with its first byte alone",
    "empty": "answers a support query with no byte at all",
    "overflow": "answers a support query with more than was asked for",
    "stall": "refuses every request",
    "silent": "never answers",
    "leave": "is pulled out while the request waits for its answer",
}

Triple = tuple[int, int, int]


@dataclass(frozen=True)
class Model:
    """One kind of peripheral. answers holds, for each request that it knows, what "plain" and "no" send."""

    help: str
    vendor: int
    product: int
    manufacturer: str
    name: str
    interfaces: tuple[Triple, ...]
    milliamperes: int = 100
    products: range | tuple[int, ...] = ()  # what may be chosen instead of product
    answers: tuple[tuple[tuple[int, int], bytes, bytes], ...] = ()


MODELS = {
    "phone": Model("a phone of Apple (05ac:12a8) that takes the role switch and the CarPlay query",
                   APPLE, 0x12A8, "Apple Inc.", "iPhone", ((6, 1, 1), (255, 254, 2)), 500,
                   products=range(0x1200, 0x1300),
                   answers=((ROLE_SWITCH, b"", b""), (CARPLAY_SUPPORT, b"\1\0\0\0", bytes(4)))),
    "android": Model("an Android phone (18d1:4ee1) that answers the accessory query",
                     GOOGLE, 0x4EE1, "Google", "Pixel", ((6, 1, 1), (255, 66, 1)), 500,
                     answers=((ACCESSORY_PROTOCOL, b"\2\0", b"\0\0"),)),
    "testdevice": Model("a certification device of vendor 6666, product 257 to 264, 513 or 514 (258)",
                        CERTIFICATION, 258, "Certification", "Test device", ((255, 0, 0),),
                        products=CERTIFICATION_PRODUCTS),
    "hungry": Model("a device that asks for 500 mA",
                    0x1209, 0x0500, "Headunit", "Hungry device", ((255, 0, 0),), 500),
}


def describe(kind: str, name: str, product: int | None = None, manner: str = "plain") -> dict[str, Any]:
    """What usbplayer.py is told. name becomes the serial number."""
    model = MODELS[kind]
    if manner not in MANNERS:
        raise HeadunitError(f"no manner {manner}: choose one of {', '.join(MANNERS)}")
    if manner != "plain" and not model.answers:
        raise HeadunitError(f"{kind} is asked nothing that it could answer {manner}")
    if product is not None and product not in (model.product, *model.products):
        raise HeadunitError(f"{kind} cannot have the product {product}")
    return {
        "vendor": model.vendor,
        "product": model.product if product is None else product,
        "class": (0, 0, 0),
        "manufacturer": model.manufacturer,
        "name": model.name,
        "serial": f"HEADUNIT-{name}",
        "interfaces": model.interfaces,
        "milliamperes": model.milliamperes,
        "manner": "plain" if manner == "no" else manner,
        "answers": [{"request": request, "data": (refusal if manner == "no" else answer).hex()}
                    for request, answer, refusal in model.answers],
    }
