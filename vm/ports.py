# SPDX-License-Identifier: Apache-2.0
"""Where USB peripherals are plugged: the machine's buses, their ports, and the ports of hubs."""

from __future__ import annotations

from dataclasses import dataclass, field

from .errors import HeadunitError

# EHCI's six root ports hand what is full speed to their companions, as on a real board. xHCI's root ports
# exist once for each speed, hence the property of its device with the same number.
EHCI_PORTS = 6
XHCI_PORTS = 8
HUB_PORTS = 8
MAX_DEPTH = 5  # hubs in a row that the bus allows


@dataclass(frozen=True)
class Port:
    """A place to plug into. path is the emulator's notation, "2" or "2.1" behind a hub in port 2."""

    bus: str
    path: str

    @property
    def depth(self) -> int:
        """Number of hubs before it."""
        return self.path.count(".")


@dataclass
class PortMap:
    """Which port is taken by whom. The first free port is given."""

    _taken: dict[Port, str] = field(default_factory=dict)
    _hubs: dict[str, Port] = field(default_factory=dict)

    BUSES = {"ehci": ("ehci.0", EHCI_PORTS), "xhci": ("xhci.0", XHCI_PORTS)}

    def take(self, name: str, bus: str = "ehci", behind: str | None = None, is_hub: bool = False) -> Port:
        """Gives name a port of the bus, or of the hub with the name behind."""
        port = next((port for port in self._candidates(bus, behind) if port not in self._taken), None)
        if port is None:
            raise HeadunitError(f"no free port {'behind ' + behind if behind else 'on ' + bus}")
        if is_hub and port.depth >= MAX_DEPTH:
            raise HeadunitError(f"no more than {MAX_DEPTH} hubs can stand in a row")
        self._taken[port] = name
        if is_hub:
            self._hubs[name] = port
        return port

    def release(self, name: str) -> list[str]:
        """Frees the port of name; returns what stood behind it, the nearest first; its ports are free too."""
        own = next((port for port, owner in self._taken.items() if owner == name), None)
        if own is None:
            return []
        gone = [port for port in self._taken
                if port == own or (port.bus == own.bus and port.path.startswith(own.path + "."))]
        names = [self._taken.pop(port) for port in gone]
        for owner in names:
            self._hubs.pop(owner, None)
        return [owner for owner in names if owner != name]

    def _candidates(self, bus: str, behind: str | None) -> list[Port]:
        if behind is not None:
            hub = self._hubs.get(behind)
            if hub is None:
                raise HeadunitError(f"there is no hub named {behind}")
            return [Port(hub.bus, f"{hub.path}.{number}") for number in range(1, HUB_PORTS + 1)]
        if bus not in self.BUSES:
            raise HeadunitError(f"there is no bus {bus}: choose one of {', '.join(self.BUSES)}")
        name, ports = self.BUSES[bus]
        return [Port(name, str(number)) for number in range(1, ports + 1)]
