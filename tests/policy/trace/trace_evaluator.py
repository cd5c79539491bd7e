#!/usr/bin/env python3
"""A second opinion on what access lists decide, which reads the RFC 8519 file itself.

  trace_evaluator.py list SEED ENTRIES          prints a file with generated access lists
  trace_evaluator.py packets FILE SEED COUNT    prints COUNT packets, a line each:
      WHERE <tab> PACKET <tab> ACTION <tab> LIST/ENTRY
  trace_evaluator.py evaluate FILE              the same for packets from standard input, a JSON
      object a line: {"where": "if:eth0/in", "packet": {"l3": 4, "ip.source": 3221225985, ...}}

WHERE is the name of a list or "if:INTERFACE/in|out". PACKET is "frame HEX" or words. Packets lie at
the edges of what the entries ask for, most of the time. LIST/ENTRY is what decided; of the default
the entry is empty.
"""

import base64
import bisect
import ipaddress
import json
import random
import sys

ETHERTYPES = {"ipv4": 0x0800, "arp": 0x0806, "rarp": 0x8035, "vlan": 0x8100, "ipv6": 0x86DD,
              "mpls-unicast": 0x8847, "mpls-multicast": 0x8848, "pppoe-discovery": 0x8863,
              "pppoe-session": 0x8864, "eap": 0x888E, "esp": 0x8809, "provider-bridging": 0x88A8,
              "lldp": 0x88CC, "macsec": 0x88E5, "cfm": 0x8902}
IP_FLAGS = {"reserved": 4, "fragment": 2, "more": 1}
TCP_FLAGS = {"cwr": 128, "ece": 64, "urg": 32, "ack": 16, "psh": 8, "rst": 4, "syn": 2, "fin": 1}
PREFIX = "ietf-access-control-list:"

# Field in the file -> the packet's number, and how many bits it has.
IP = {"dscp": ("ip.dscp", 6), "ecn": ("ip.ecn", 2), "length": ("ip.length", 16),
      "ttl": ("ip.ttl", 8), "protocol": ("ip.protocol", 8)}
IPV4 = {**IP, "ihl": ("ip.ihl", 4), "offset": ("ip.offset", 13), "identification": ("ip.id", 16)}
IPV6 = {**IP, "flow-label": ("ip.flow", 20)}
TCP = {"sequence-number": ("tcp.seq", 32), "acknowledgement-number": ("tcp.ack", 32),
       "data-offset": ("tcp.offset", 4), "reserved": ("tcp.reserved", 4),
       "window-size": ("tcp.window", 16), "urgent-pointer": ("tcp.urgent", 16)}
UDP = {"length": ("udp.length", 16)}
ICMP = {"type": ("icmp.type", 8), "code": ("icmp.code", 8)}
BITS = {name: bits for group in (IPV4, IPV6, TCP, UDP, ICMP) for name, bits in group.values()}
BITS.update({"eth.type": 16, "eth.source": 48, "eth.destination": 48, "port.source": 16,
             "port.destination": 16, "tcp.flags": 8, "ip.flags": 3})


def plain(members):
    return {(key[len(PREFIX):] if key.startswith(PREFIX) else key): value
            for key, value in members.items()}


def find_acls(value):
    if isinstance(value, dict):
        for name, member in value.items():
            if name == PREFIX + "acls":
                return member
            found = find_acls(member)
            if found is not None:
                return found
    return None


def mac_number(text):
    return int(text.replace(":", ""), 16)


def port_ranges(ports):
    if "lower-port" in ports:
        return [(ports["lower-port"], ports["upper-port"])]
    port = ports["port"]
    operator = ports.get("operator", "eq")
    if operator == "eq":
        return [(port, port)]
    if operator == "lte":
        return [(0, port)]
    if operator == "gte":
        return [(port, 65535)]
    return [pair for pair in ((0, port - 1), (port + 1, 65535)) if pair[0] <= pair[1]]


class Entry:
    """What an entry asks: headers, ranges of numbers, masked addresses, strings, interfaces."""

    def __init__(self, ace):
        ace = plain(ace)
        self.name = ace["name"]
        self.action = ace["actions"]["forwarding"].replace(PREFIX, "")
        self.headers = {}  # "eth": True, "l3": 4 or 6, "l4": "tcp"
        self.ranges = {}
        self.masked = {}
        self.strings = {}
        self.interfaces = {}
        matches = plain(ace.get("matches", {}))
        for name in ("ingress-interface", "egress-interface"):
            if name in matches:
                self.interfaces[name.split("-")[0]] = matches[name]
        if "eth" in matches:
            self.read_eth(plain(matches["eth"]))
        if "ipv4" in matches:
            self.read_ip(plain(matches["ipv4"]), 4, IPV4)
        if "ipv6" in matches:
            self.read_ip(plain(matches["ipv6"]), 6, IPV6)
        for name, fields in (("tcp", TCP), ("udp", UDP), ("icmp", ICMP)):
            if name in matches:
                self.read_l4(plain(matches[name]), name, fields)

    def read_eth(self, eth):
        self.headers["eth"] = True
        for side in ("source", "destination"):
            if side + "-mac-address" in eth:
                mask = mac_number(eth.get(side + "-mac-address-mask", "ff:ff:ff:ff:ff:ff"))
                self.masked["eth." + side] = (mac_number(eth[side + "-mac-address"]) & mask, mask)
        if "ethertype" in eth:
            number = ETHERTYPES.get(eth["ethertype"], eth["ethertype"])
            self.ranges["eth.type"] = [(number, number)]

    def read_numbers(self, members, fields):
        for name, (number, _) in fields.items():
            if name in members:
                self.ranges[number] = [(members[name], members[name])]

    def read_ip(self, members, version, fields):
        self.headers["l3"] = version
        self.read_numbers(members, fields)
        if "flags" in members:
            bits = sum(IP_FLAGS[flag] for flag in members["flags"].split())
            self.ranges["ip.flags"] = [(bits, bits)]
        for side in ("source", "destination"):
            network = members.get("%s-ipv%d-network" % (side, version))
            if network is not None:
                network = ipaddress.ip_network(network, strict=False)
                self.ranges["ip%d.%s" % (version, side)] = [
                    (int(network[0]), int(network[-1]))]

    def read_l4(self, members, name, fields):
        self.headers["l4"] = name
        self.read_numbers(members, fields)
        for side in ("source", "destination"):
            if members.get(side + "-port"):
                self.ranges["port." + side] = port_ranges(plain(members[side + "-port"]))
        if name == "tcp" and "flags" in members:
            bits = sum(TCP_FLAGS[flag] for flag in members["flags"].split())
            self.ranges["tcp.flags"] = [(bits, bits)]
        for string in ("options", "rest-of-header"):
            if string in members:
                self.strings[string] = base64.b64decode(members[string])

    def matches(self, packet):
        """One entry at a time: what the tables below must agree with."""
        for header, wanted in self.headers.items():
            if packet.get(header) != wanted:
                return False
        for number, ranges in self.ranges.items():
            if number not in packet:
                return False
            if not any(low <= packet[number] <= high for low, high in ranges):
                return False
        for number, (value, mask) in self.masked.items():
            if packet[number] & mask != value:
                return False
        if "options" in self.strings and packet["options"] != self.strings["options"]:
            return False
        if "rest-of-header" in self.strings and not packet["rest-of-header"].startswith(
                self.strings["rest-of-header"]):
            return False
        for side, name in self.interfaces.items():
            if packet.get(side) != name:
                return False
        return True


class Table:
    """For each stretch of a number's values the entries, as bits, that it suits."""

    def __init__(self, number, entries):
        edges = {0}
        for entry in entries:
            for low, high in entry.ranges.get(number, ()):
                edges.update((low, high + 1))
        self.edges = sorted(edges)
        self.suits = [0] * len(self.edges)
        anything = 0
        for i, entry in enumerate(entries):
            if number not in entry.ranges:
                anything |= 1 << i
                continue
            for low, high in entry.ranges[number]:
                first = bisect.bisect_left(self.edges, low)
                last = bisect.bisect_left(self.edges, high + 1)
                for segment in range(first, last):
                    self.suits[segment] |= 1 << i
        self.suits = [bits | anything for bits in self.suits]
        self.anything = anything

    def find(self, value):
        return self.suits[bisect.bisect_right(self.edges, value) - 1]


class List:
    def __init__(self, acl):
        acl = plain(acl)
        self.name = acl["name"]
        aces = plain(acl.get("aces", {})).get("ace", [])
        self.entries = [Entry(ace) for ace in aces if not self.is_foreign(ace)]
        numbers = sorted({number for entry in self.entries for number in entry.ranges})
        self.tables = {number: Table(number, self.entries) for number in numbers}

    @staticmethod
    def is_foreign(ace):
        def foreign(value):
            return isinstance(value, dict) and any(
                (":" in key and not key.startswith(PREFIX)) or foreign(member)
                for key, member in value.items())
        return foreign(ace)

    def first_match(self, packet):
        bits = (1 << len(self.entries)) - 1
        for number, table in self.tables.items():
            bits &= table.find(packet[number]) if number in packet else table.anything
            if not bits:
                return None
        while bits:
            first = (bits & -bits).bit_length() - 1
            if self.entries[first].matches(packet):
                return self.entries[first]
            bits &= bits - 1
        return None


class Policy:
    def __init__(self, file):
        with open(file, encoding="utf-8") as stream:
            acls = plain(find_acls(json.load(stream)))
        self.lists = {acl["name"]: List(acl) for acl in map(plain, acls.get("acl", []))}
        self.places = {}
        points = plain(acls.get("attachment-points", {}))
        for interface in map(plain, points.get("interface", [])):
            for direction, word in (("ingress", "in"), ("egress", "out")):
                sets = plain(plain(interface.get(direction, {})).get("acl-sets", {}))
                names = [plain(acl_set)["name"] for acl_set in sets.get("acl-set", [])]
                if names:
                    self.places["if:%s/%s" % (interface["interface-id"], word)] = names

    def wheres(self):
        return list(self.places) + list(self.lists)

    def asked(self, where):
        return [self.lists[name] for name in self.places.get(where, [where])]

    def decide(self, where, packet):
        packet = dict(packet)
        if where in self.places:
            name, direction = where[len("if:"):].rsplit("/", 1)
            packet["ingress" if direction == "in" else "egress"] = name
        for acl in self.asked(where):
            entry = acl.first_match(packet)
            if entry is not None:
                return entry.action, acl.name + "/" + entry.name
        return "drop", self.asked(where)[-1].name + "/"


def near(rng, low, high, bits):
    """A value in or beside a range, most often at one of its ends."""
    value = rng.choice((low, high, low, high, rng.randint(low, high), low - 1, high + 1))
    return min(max(value, 0), (1 << bits) - 1)


class Maker:
    """Packets that are likely to be decided by the entries of some lists."""

    def __init__(self, rng, lists):
        self.rng = rng
        self.entries = [entry for acl in lists for entry in acl.entries]
        # Entries at the beginning hide those behind them, so most packets are made for none.
        self.edges = {}
        for entry in self.entries:
            for number, ranges in entry.ranges.items():
                self.edges.setdefault(number, []).extend(ranges)

    def number(self, name, bits, entry, otherwise=None):
        rng = self.rng
        if entry is not None and name in entry.ranges and rng.random() < 0.9:
            low, high = rng.choice(entry.ranges[name])
            if rng.random() < 0.8:
                return min(rng.choice((low, high, rng.randint(low, high))), (1 << bits) - 1)
            return near(rng, low, high, bits)
        if name in self.edges and rng.random() < 0.6:
            return near(rng, *rng.choice(self.edges[name]), bits)
        if otherwise is not None:
            return otherwise()
        return rng.getrandbits(bits)

    def make(self):
        rng = self.rng
        entry = rng.choice(self.entries) if self.entries and rng.random() < 0.9 else None
        wanted = entry.headers if entry is not None and rng.random() < 0.95 else {}
        packet = {"eth": True, "vlans": [], "extensions": []}
        l3 = wanted.get("l3", rng.choice((4, 4, 4, 6, 6, None)))
        l4 = wanted.get("l4", rng.choice(("tcp", "udp", "icmp", None)))
        if "l4" in wanted and l3 is None:
            l3 = rng.choice((4, 6))
        for side in ("source", "destination"):
            packet["eth." + side] = rng.getrandbits(48)
            if entry is not None and "eth." + side in entry.masked:
                value, mask = entry.masked["eth." + side]
                packet["eth." + side] = value | (rng.getrandbits(48) & ~mask)
                if rng.random() < 0.1:
                    packet["eth." + side] ^= 1 << rng.randrange(48)
        if rng.random() < 0.2:
            packet["vlans"] = [rng.getrandbits(12) for _ in range(rng.choice((1, 1, 2)))]
        if l3 is None:
            otherwise = lambda: rng.choice((0x0806, 0x88CC, 0x8847, rng.getrandbits(16)))
            packet["eth.type"] = self.number("eth.type", 16, entry, otherwise)
            if packet["eth.type"] in (0x0800, 0x86DD, 0x8100, 0x88A8):
                packet["eth.type"] = 0x0806
            packet["inner"] = packet["eth.type"]
        else:
            packet["inner"] = packet["eth.type"] = 0x0800 if l3 == 4 else 0x86DD
            self.fill_ip(packet, l3, l4, entry)
        if packet["vlans"]:
            packet["eth.type"] = 0x8100 if len(packet["vlans"]) == 1 else 0x88A8
        return packet

    def fill_ip(self, packet, l3, l4, entry):
        rng = self.rng
        packet["l3"] = l3
        for name, bits in (("ip.dscp", 6), ("ip.ecn", 2), ("ip.ttl", 8)):
            packet[name] = self.number(name, bits, entry)
        for side in ("source", "destination"):
            name = "ip%d.%s" % (l3, side)
            packet[name] = self.number(name, 32 if l3 == 4 else 128, entry)
        packet["later"] = False
        if l3 == 4:
            packet["ip.ihl"] = max(self.number("ip.ihl", 4, entry, lambda: 5), 5)
            packet["ip.flags"] = self.number("ip.flags", 3, entry)
            packet["ip.id"] = self.number("ip.id", 16, entry)
            packet["ip.offset"] = self.number(
                "ip.offset", 13, entry, lambda: rng.choice((0, 0, 0, 0, 0, 0, 0, 1, 185)))
            packet["later"] = packet["ip.offset"] != 0
        else:
            packet["ip.flow"] = self.number("ip.flow", 20, entry)
            packet["extensions"] = [rng.choice((0, 43, 60, 51, 44))
                                    for _ in range(rng.choice((0, 0, 0, 1, 2)))]
            packet["later"] = 44 in packet["extensions"] and rng.random() < 0.5
            if packet["later"]:
                del packet["extensions"][packet["extensions"].index(44) + 1:]
        if l4 is not None:
            packet["ip.protocol"] = {"tcp": 6, "udp": 17, "icmp": 1 if l3 == 4 else 58}[l4]
        else:
            # One of a header that is there has the header cut off, or another number.
            packet["ip.protocol"] = self.number(
                "ip.protocol", 8, entry, lambda: rng.choice((47, 50, 89, 132, 6, 17, 1)))
            if packet["ip.protocol"] in (0, 43, 44, 51, 60, 135, 139, 140):
                packet["ip.protocol"] = 47
        packet["payload"] = bytes(rng.getrandbits(8) for _ in range(rng.randrange(4)))
        if l4 is not None and not packet["later"]:
            packet["l4"] = l4
            getattr(self, "fill_" + l4)(packet, entry)
        self.fill_length(packet, entry)

    def fill_ports(self, packet, entry):
        for side in ("source", "destination"):
            packet["port." + side] = self.number("port." + side, 16, entry)

    def fill_tcp(self, packet, entry):
        rng = self.rng
        self.fill_ports(packet, entry)
        for name in ("tcp.seq", "tcp.ack", "tcp.reserved", "tcp.window", "tcp.urgent",
                     "tcp.flags"):
            packet[name] = self.number(name, BITS[name], entry)
        words = max(self.number("tcp.offset", 4, entry, lambda: rng.choice((5, 5, 6, 8))), 5) - 5
        packet["options"] = bytes(rng.choice((1, rng.getrandbits(8))) for _ in range(4 * words))
        if entry is not None and "options" in entry.strings and rng.random() < 0.8:
            wanted = entry.strings["options"]
            packet["options"] = wanted + bytes(-len(wanted) % 4)
        packet["tcp.offset"] = 5 + len(packet["options"]) // 4

    def fill_udp(self, packet, entry):
        self.fill_ports(packet, entry)
        packet["udp.length"] = self.number("udp.length", 16, entry)

    def fill_icmp(self, packet, entry):
        rng = self.rng
        for name in ("icmp.type", "icmp.code"):
            packet[name] = self.number(name, 8, entry)
        rest = bytes(rng.getrandbits(8) for _ in range(rng.choice((4, 4, 8, 0))))
        if entry is not None and "rest-of-header" in entry.strings and rng.random() < 0.9:
            rest = entry.strings["rest-of-header"] + rest
            if rng.random() < 0.2:
                rest = rest[:-1]
        packet["rest-of-header"] = rest
        packet["payload"] = b""

    def fill_length(self, packet, entry):
        length = ip_length(packet)
        wanted = self.number("ip.length", 16, entry, lambda: length)
        if length < wanted <= 1500 and "rest-of-header" not in packet and (
                "l4" in packet or packet["later"] or
                packet["ip.protocol"] not in (1, 6, 17, 58)):
            packet["payload"] += bytes(wanted - length)
        packet["ip.length"] = ip_length(packet)


def u(value, size):
    return value.to_bytes(size, "big")


def l4_bytes(packet):
    l4 = packet.get("l4")
    head = b""
    if l4 == "tcp":
        head = (u(packet["port.source"], 2) + u(packet["port.destination"], 2) +
                u(packet["tcp.seq"], 4) + u(packet["tcp.ack"], 4) +
                u(packet["tcp.offset"] << 4 | packet["tcp.reserved"], 1) +
                u(packet["tcp.flags"], 1) + u(packet["tcp.window"], 2) + b"\xaa\xbb" +
                u(packet["tcp.urgent"], 2) + packet["options"])
    elif l4 == "udp":
        head = (u(packet["port.source"], 2) + u(packet["port.destination"], 2) +
                u(packet["udp.length"], 2) + b"\xaa\xbb")
    elif l4 == "icmp":
        head = (u(packet["icmp.type"], 1) + u(packet["icmp.code"], 1) + b"\xaa\xbb" +
                packet["rest-of-header"])
    return head + packet["payload"]


def extension_bytes(packet):
    """The first protocol number, and the extension headers' bytes."""
    chain = packet["extensions"] + [packet["ip.protocol"]]
    text = b""
    for number, follower in zip(chain, chain[1:]):
        if number == 44:
            offset = 77 << 3 if packet["later"] else 0
            text += u(follower, 1) + b"\0" + u(offset | 1, 2) + b"\0\0\0\7"
        elif number == 51:
            text += u(follower, 1) + b"\1" + bytes(10)
        else:
            text += u(follower, 1) + b"\1" + bytes(14)
    return chain[0], text


def ip_length(packet):
    if packet["l3"] == 4:
        return 4 * packet["ip.ihl"] + len(l4_bytes(packet))
    return len(extension_bytes(packet)[1]) + len(l4_bytes(packet))


def frame(packet):
    text = u(packet["eth.destination"], 6) + u(packet["eth.source"], 6)
    for i, vlan in enumerate(packet["vlans"]):
        text += u(0x8100 if i + 1 == len(packet["vlans"]) else 0x88A8, 2) + u(vlan | 0x2000, 2)
    text += u(packet["inner"], 2)
    if packet.get("l3") == 4:
        text += (u(0x40 | packet["ip.ihl"], 1) + u(packet["ip.dscp"] << 2 | packet["ip.ecn"], 1) +
                 u(packet["ip.length"], 2) + u(packet["ip.id"], 2) +
                 u(packet["ip.flags"] << 13 | packet["ip.offset"], 2) +
                 u(packet["ip.ttl"], 1) + u(packet["ip.protocol"], 1) + b"\xcc\xdd" +
                 u(packet["ip4.source"], 4) + u(packet["ip4.destination"], 4) +
                 b"\1" * (4 * packet["ip.ihl"] - 20) + l4_bytes(packet))
    elif packet.get("l3") == 6:
        following, extensions = extension_bytes(packet)
        first = 6 << 28 | packet["ip.dscp"] << 22 | packet["ip.ecn"] << 20 | packet["ip.flow"]
        text += (u(first, 4) + u(packet["ip.length"], 2) + u(following, 1) +
                 u(packet["ip.ttl"], 1) + u(packet["ip6.source"], 16) +
                 u(packet["ip6.destination"], 16) + extensions + l4_bytes(packet))
    return text + bytes(max(0, 60 - len(text)))


def mac_words(number):
    return ":".join("%02x" % byte for byte in u(number, 6))


def words(packet):
    """All that there is to say, in words; padding and extension headers can't be said."""
    said = ["eth from", mac_words(packet["eth.source"]), "to",
            mac_words(packet["eth.destination"]), "ethertype 0x%04x" % packet["eth.type"]]
    said += ["vlan %d" % vlan for vlan in packet["vlans"]]
    if "l3" not in packet:
        return " ".join(said + ["no-ip"])
    said.append("ipv%d" % packet["l3"])
    l4 = packet.get("l4")
    if l4 is not None:
        said.append("icmp6" if l4 == "icmp" and packet["l3"] == 6 else l4)
    kind = ipaddress.IPv4Address if packet["l3"] == 4 else ipaddress.IPv6Address
    ends = []
    for side in ("source", "destination"):
        end = str(kind(packet["ip%d.%s" % (packet["l3"], side)]))
        if "port." + side in packet:
            end = ("%s:%d" if packet["l3"] == 4 else "[%s]:%d") % (end, packet["port." + side])
        ends.append(end)
    said.append(" > ".join(ends))
    names = {"ip.dscp": "dscp", "ip.ecn": "ecn", "ip.length": "length", "ip.ttl": "ttl",
             "ip.protocol": "protocol", "ip.ihl": "ihl", "ip.id": "identification",
             "ip.offset": "offset", "ip.flow": "flow-label", "tcp.seq": "seq",
             "tcp.ack": "acknowledgement-number", "tcp.offset": "data-offset",
             "tcp.reserved": "reserved", "tcp.window": "window", "tcp.urgent": "urgent-pointer",
             "udp.length": "udp-length", "icmp.type": "type", "icmp.code": "code"}
    said += ["%s %d" % (word, packet[name]) for name, word in names.items() if name in packet]
    for name, word, flags in (("tcp.flags", "flags", TCP_FLAGS), ("ip.flags", "ip-flags", IP_FLAGS)):
        if name in packet:
            said.append(word + " " + (",".join(
                flag for flag, bit in flags.items() if packet[name] & bit) or "none"))
    for name in ("options", "rest-of-header"):
        if name in packet:
            said.append(name + " " + (packet[name].hex() or "none"))
    if l4 is None and not (packet["l3"] == 4 and packet["later"]):
        said.append("no-transport")
    return " ".join(said)


def print_packets(file, seed, count):
    policy = Policy(file)
    rng = random.Random(seed)
    wheres = policy.wheres()
    makers = {where: Maker(rng, policy.asked(where)) for where in wheres}
    lines = []
    for i in range(count):
        where = wheres[i % len(wheres)]
        packet = makers[where].make()
        action, decider = policy.decide(where, packet)
        text = words(packet) if i % 3 == 0 else "frame " + frame(packet).hex()
        lines.append("%s\t%s\t%s\t%s\n" % (where, text, action, decider))
    sys.stdout.write("".join(lines))


def random_network(rng, version):
    bits = 32 if version == 4 else 128
    base = 10 << 24 if version == 4 else 0x20010DB8 << 96
    length = rng.choice((0, 16, 20, 24, 28, 30, 31, 32, 32, 32)) * (1 if version == 4 else 4)
    address = base | rng.getrandbits(bits - 10) & rng.choice((0xFFFF, 0xFF00FF, (1 << bits) - 1))
    address = address >> (bits - length) << (bits - length)
    kind = ipaddress.IPv4Network if version == 4 else ipaddress.IPv6Network
    return str(kind((address, length)))


def random_ports(rng):
    low, high = sorted(rng.choice((0, 22, 53, 80, 443, 1023, 1024, 65535, rng.getrandbits(16)))
                       for _ in range(2))
    operator = rng.choice(("eq", "neq", "lte", "gte", None))
    if operator is None:
        return {"lower-port": low, "upper-port": high}
    return {"operator": operator, "port": low}


def random_flags(rng, flags):
    return " ".join(flag for flag in flags if rng.random() < 0.3)


def random_mac(rng):
    return mac_words(0x00005E005300 | rng.getrandbits(4))


def random_fields(rng, fields, chance):
    least = {"offset": 20, "ihl": 5, "data-offset": 5}
    small = {"length": 200}
    return {name: rng.randint(least.get(name, 0), small.get(name, (1 << bits) - 1))
            for name, (_, bits) in fields.items() if rng.random() < chance}


def random_matches(rng):
    matches = {}
    if rng.random() < 0.15:
        eth = matches["eth"] = {}
        for side in ("source", "destination"):
            if rng.random() < 0.4:
                eth[side + "-mac-address"] = random_mac(rng)
                if rng.random() < 0.5:
                    eth[side + "-mac-address-mask"] = rng.choice(
                        ("ff:ff:ff:00:00:00", "01:00:00:00:00:00", "ff:ff:ff:ff:ff:f3"))
        if rng.random() < 0.3:
            eth["ethertype"] = rng.choice((0x0800, 0x86DD, "arp", "vlan", 0x88CC))
    version = rng.choice((4, 4, 4, 6, 6, None))
    if version is not None:
        ip = random_fields(rng, IPV4 if version == 4 else IPV6, 0.02)
        for side in ("source", "destination"):
            if rng.random() < 0.9:
                ip["%s-ipv%d-network" % (side, version)] = random_network(rng, version)
        if version == 4 and rng.random() < 0.05:
            ip["flags"] = random_flags(rng, IP_FLAGS)
        if rng.random() < 0.1:
            ip["protocol"] = rng.choice((1, 6, 17, 47, 50, 58, 89))
        matches["ipv%d" % version] = ip
    l4 = rng.choice(("tcp", "tcp", "udp", "icmp", None))
    if l4 is not None:
        members = random_fields(rng, {"tcp": TCP, "udp": UDP, "icmp": {}}[l4], 0.02)
        if l4 == "icmp":
            members = random_fields(rng, ICMP, 0.6)
            if rng.random() < 0.2:
                rest = bytes(rng.getrandbits(1) for _ in range(rng.randrange(4)))
                members["rest-of-header"] = base64.b64encode(rest).decode()
        else:
            for side in ("source", "destination"):
                if rng.random() < 0.5:
                    members[side + "-port"] = random_ports(rng)
        if l4 == "tcp" and rng.random() < 0.2:
            members["flags"] = random_flags(rng, TCP_FLAGS)
        if l4 == "tcp" and rng.random() < 0.05:
            options = bytes(rng.getrandbits(1) for _ in range(rng.choice((4, 8, 3))))
            members["options"] = base64.b64encode(options).decode()
        matches[l4] = members
    return matches


def print_list(seed, count):
    rng = random.Random(seed)
    acls = []
    for name in ("first", "second"):
        aces = []
        for i in range(count):
            matches = random_matches(rng)
            # What asks for little hides all behind it, so there is little of that.
            while sum(map(len, matches.values())) < (2 if i % 50 else 1) or (
                    rng.random() < 0.9 and matches.get("ipv4", matches.get("ipv6")) is None):
                matches = random_matches(rng)
            aces.append({"name": "e%d" % i, "matches": matches, "actions": {
                "forwarding": rng.choice(("accept", "drop", "reject"))}})
            if rng.random() < 0.01:
                aces[-1]["matches"]["ingress-interface"] = rng.choice(("eth0", "eth1"))
        acls.append({"name": name, "type": "mixed-eth-ipv4-ipv6-acl-type", "aces": {"ace": aces}})
    points = [{"interface-id": "eth0", "ingress": {"acl-sets": {"acl-set": [
        {"name": "second"}, {"name": "first"}]}}}]
    document = {PREFIX + "acls": {"acl": acls, "attachment-points": {"interface": points}}}
    json.dump(document, sys.stdout, indent=1)


def evaluate(file):
    policy = Policy(file)
    for line in sys.stdin:
        question = json.loads(line)
        action, decider = policy.decide(question["where"], question["packet"])
        print(json.dumps({"action": action, "decider": decider}))


def main():
    command, arguments = sys.argv[1], sys.argv[2:]
    if command == "list":
        print_list(int(arguments[0]), int(arguments[1]))
    elif command == "packets":
        print_packets(arguments[0], int(arguments[1]), int(arguments[2]))
    else:
        evaluate(arguments[0])


main()
