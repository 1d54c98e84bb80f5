#!/usr/bin/env python3
"""Reads an attribute log and writes its content as JSON.

A second implementation of doc/attribute-log.md, written from that document alone: it shares no code
with the library. Connects to a Unix socket, reads until the state is complete, and writes the state
of every interface, or with --whole what belongs to none; with --follow it writes each frame as a
line of JSON when it is received, and the state in a line of its own when the log ends.

Exit status: 0, 1 when the log breaks its rules or is refused, 2 when it cannot be reached.
"""
import argparse
import ipaddress
import json
import math
import socket
import struct
import sys
import time

MAGIC, VERSION = 0x4d6f784c, 1
WHOLE, RESUMED, MORE = 1, 2, 2
FRAMES = {1: "hello", 2: "root", 3: "rootGone", 4: "attributes", 5: "begin", 6: "addition",
          7: "removal", 8: "end", 9: "current", 10: "question", 11: "answer", 12: "refusal"}
ARGUMENTS = {1: "flag", 2: "u32", 3: "u64", 4: "seconds", 5: "text"}


def attributes(first, *names_and_kinds):
    """Attributes with identifiers that follow each other."""
    pairs = [pair.split(":") for pair in names_and_kinds]
    return {first + place: (name, kind) for place, (name, kind) in enumerate(pairs)}


# By type: the attributes that are sent, by identifier, and the collection with its members' type.
TYPES = {
    "Gmp::Igmp::QuerierConfig": (
        attributes(258, "robustness:u32", "queryInterval:seconds", "queryResponseInterval:seconds",
                   "startupQueryInterval:seconds", "startupQueryCount:u32",
                   "lastMemberQueryInterval:seconds", "querierVersion:u32",
                   "lastMemberQueryCount:u32")
        | attributes(267, "addRandomDelayToTimer:flag", "sendQuery:flag"), None),
    "Gmp::Igmp::QuerierStatus": (
        attributes(258, "state:u32", "querierVersion:u32")
        | attributes(261, "creationTime:seconds", "joins:u64", "electedQuerierAddr:addr",
                     "robustness:u32", "queryInterval:seconds", "queryResponseInterval:seconds",
                     "startupQueryInterval:seconds")
        | attributes(271, "generalQueryExpiryTime:seconds", "otherQuerierExpiryTime:seconds",
                     "v1QueriesSent:u32", "v2QueriesSent:u32", "v3QueriesSent:u32",
                     "v3GSQueriesSent:u32", "v3GSSQueriesSent:u32")
        | attributes(279, "v1QueriesReceived:u32", "v2QueriesReceived:u32",
                     "v3QueriesReceived:u32", "v1ReportReceived:u32", "v2ReportReceived:u32",
                     "v2LeaveReceived:u32", "v3ReportReceived:u32", "errorPacketReceived:u32",
                     "otherPacketReceived:u32", "mcastBoundaryPktReceived:u32"),
        (260, "group", "Gmp::Igmp::QuerierGroupStatus")),
    "Gmp::Igmp::QuerierGroupStatus": (
        {259: ("filterMode", "u32")}
        | attributes(261, "compatibilityMode:u32", "creationTime:seconds", "expiryTime:seconds",
                     "lastReporter:addr"),
        (260, "source", "Gmp::Igmp::QuerierSourceStatus")),
    "Agent::InterfaceState": (
        attributes(258, "address:addr", "running:flag", "electedTime:seconds", "framesLost:u64",
                   "framesUnparsable:u64", "fragmentsReceived:u64", "otherVlanFrames:u64",
                   "sendFailures:u64", "queriesLost:u64", "deferredLost:u64", "index:u32",
                   "mac:text", "takenOverTime:seconds", "takenOverGroups:u64",
                   "roleChanges:u64"),
        None),
    "Agent::IntakeConfig": (
        attributes(258, "multicastOnly:flag", "refuseFragments:flag", "ttlOne:flag",
                   "localQueries:flag", "guardSpecificQueries:flag", "limitQuerierTimes:flag",
                   "reportNewQueriers:flag", "permittedQueriers:text", "acceptedGroups:text",
                   "localReports:flag", "requireRouterAlert:flag", "leastReportVersion:u32",
                   "guardSourceSpecific:flag", "maxGroups:u32", "maxGroupSources:u32",
                   "maxSources:u32", "maxGroupRecords:u32", "maxQueryRate:u32",
                   "maxQueryBurst:u32", "listenOnly:flag"), None),
    "Agent::IntakeStatus": (
        attributes(258, "notMulticast:u64", "fragment:u64", "wrongTtl:u64", "foreignQuery:u64",
                   "unpermittedQuerier:u64", "specificQuery:u64", "querierTimes:u64",
                   "newQuerier:u64", "ownAddress:u64", "foreignReport:u64", "noRouterAlert:u64",
                   "oldVersion:u64", "unacceptedGroup:u64", "notSourceSpecific:u64",
                   "groupLimit:u64", "processGroupLimit:u64", "groupSourceLimit:u64",
                   "sourceLimit:u64", "processSourceLimit:u64", "groupRecordLimit:u64",
                   "queryLimit:u64", "groupsMost:u64", "sourcesMost:u64", "groupSourcesMost:u64",
                   "groupRecordsMost:u64", "queryBurstMost:u64"), None),
    "Agent::IntakeProcessConfig": (
        attributes(258, "maxProcessGroups:u32", "maxProcessSources:u32"), None),
    "Agent::IntakeProcessStatus": (
        attributes(258, "groupsMost:u64", "sourcesMost:u64"), None),
    "Agent::LoopState": (
        attributes(258, "batches:u64", "longestGap:seconds", "gaps500us:u64", "gaps1ms:u64",
                   "gaps2ms:u64", "gaps5ms:u64", "gaps10ms:u64",
                   "gaps20ms:u64", "gaps50ms:u64", "gaps100ms:u64",
                   "gaps1s:u64", "gapsLonger:u64", "gapSum:seconds",
                   "queries500us:u64", "queries1ms:u64", "queries2ms:u64",
                   "queries5ms:u64", "queries10ms:u64", "queries20ms:u64",
                   "queries50ms:u64", "queries100ms:u64", "queries1s:u64",
                   "queriesLonger:u64", "querySum:seconds"), None),
    "Agent::StoreState": (
        attributes(258, "formatVersion:u32", "bootId:text", "machineId:text", "complete:flag",
                   "lostTime:seconds", "lostWallClock:seconds", "groups:u64"), None),
    "Gmp::Igmp::QuerierSourceStatus": (
        attributes(259, "expired:flag", "creationTime:seconds", "expiryTime:seconds"), None),
}


class LogError(Exception):
    """The log breaks its rules, or ended with a refusal."""


def dotted(number):
    return str(ipaddress.IPv4Address(number))


class Fields:
    """The fields of one frame, read from front to back."""

    def __init__(self, data):
        self.data, self.at = data, 0

    def take(self, layout):
        size = struct.calcsize(">" + layout)
        if self.at + size > len(self.data):
            raise LogError("a frame is too short")
        self.at += size
        return struct.unpack_from(">" + layout, self.data, self.at - size)[0]

    def value(self, kind):
        if kind == "text":
            size = self.take("H")
            if size > 255:
                raise LogError("a text is too long")
            return self.take(f"{size}s").decode("utf-8", "replace")
        if kind == "flag":
            flag = self.take("B")
            if flag > 1:
                raise LogError("a flag is neither 0 nor 1")
            return flag == 1
        if kind == "seconds":
            seconds = self.take("d")
            return seconds if math.isfinite(seconds) else "infinity"
        if kind == "addr":
            return dotted(self.take("I"))
        return self.take({"u8": "B", "u16": "H", "u32": "I", "u64": "Q"}[kind])

    def ref(self):
        number, depth = self.value("u32"), self.value("u8")
        if depth > 4:
            raise LogError("an entity is too deep")
        return number, [self.value("u32") for _ in range(depth)]

    def argument(self):
        kind = self.value("u8")
        if kind and kind not in ARGUMENTS:
            raise LogError("an argument is of no known kind")
        return self.value(ARGUMENTS[kind]) if kind else None

    def skip(self):
        self.at = len(self.data)

    def more(self):
        return self.at < len(self.data)


class Entity:
    def __init__(self, type_name):
        if type_name not in TYPES:
            raise LogError(f"type {type_name} is not known")
        self.type_name = type_name
        self.attributes, self.collection = TYPES[type_name]
        self.values, self.members, self.not_named = {}, {}, None

    def of(self, identifier):
        """The collection of that identifier, which must be this entity's."""
        if self.collection is None or self.collection[0] != identifier:
            raise LogError(f"{identifier} is not a collection of {self.type_name}")
        return self.collection

    def named(self, key):
        if self.not_named is not None:
            self.not_named.discard(key)

    def state(self):
        state = dict(self.values)
        if self.collection is not None:
            state[self.collection[1]] = {dotted(key): member.state()
                                         for key, member in sorted(self.members.items())}
        return state


class Log:
    """The state that was received; each on_... acts on one frame and returns its content."""

    def __init__(self):
        self.roots, self.paths, self.greeted, self.current = {}, {}, False, False

    def frame(self, data):
        fields = Fields(data)
        name = FRAMES.get(fields.value("u8"))
        if name is None:
            raise LogError("a frame of an unknown type")
        if not self.greeted and name not in ("hello", "refusal"):
            raise LogError("the first frame is not a hello")
        content = getattr(self, "on_" + name)(fields)
        if fields.more():
            raise LogError(f"a {name} is too long")
        return {"frame": name} | content

    def find(self, number, keys):
        if number not in self.roots:
            raise LogError(f"entry {number} does not exist")
        entity = self.roots[number]
        for key in keys:
            if key not in entity.members:
                raise LogError(f"member {dotted(key)} does not exist")
            entity = entity.members[key]
        return entity, "/".join([self.paths[number], *map(dotted, keys)])

    def on_hello(self, fields):
        if fields.value("u32") != MAGIC or fields.value("u16") != VERSION or self.greeted:
            raise LogError("not an attribute log of version 1")
        self.greeted = True
        return {"clock": fields.value("seconds"), "rights": fields.value("u8"),
                "name": fields.value("text")}

    def on_root(self, fields):
        number, path = fields.value("u32"), fields.value("text")
        writable, type_name = fields.value("flag"), fields.value("text")
        argument = fields.argument()
        if number in self.roots or path in self.paths.values():
            raise LogError(f"entry {number}, {path}, exists already")
        self.roots[number], self.paths[number] = Entity(type_name), path
        if argument is not None:
            self.roots[number].values["name"] = argument
        return {"entity": path, "writable": writable, "type": type_name, "argument": argument}

    def on_rootGone(self, fields):
        number = fields.value("u32")
        self.find(number, [])
        del self.roots[number]
        return {"entity": self.paths.pop(number)}

    def on_attributes(self, fields):
        entity, path = self.find(*fields.ref())
        values = {}
        while fields.more():
            identifier = fields.value("u16")
            if identifier > max(entity.attributes):
                fields.skip()  # of a later build, with all behind it
                break
            if identifier not in entity.attributes:
                raise LogError(f"attribute {identifier} of {entity.type_name} is not known")
            name, kind = entity.attributes[identifier]
            values[name] = fields.value(kind)
        entity.values.update(values)
        return {"entity": path, "values": values}

    def on_begin(self, fields):
        entity, path = self.find(*fields.ref())
        name, flags = entity.of(fields.value("u16"))[1], fields.value("u8")
        if flags & WHOLE and not flags & RESUMED:
            entity.not_named = set(entity.members)
        return {"entity": path, "collection": name, "flags": flags}

    def on_end(self, fields):
        entity, path = self.find(*fields.ref())
        name, flags = entity.of(fields.value("u16"))[1], fields.value("u8")
        if flags & WHOLE and not flags & MORE:
            for key in entity.not_named or ():
                del entity.members[key]
            entity.not_named = None
        return {"entity": path, "collection": name, "flags": flags}

    def on_addition(self, fields):
        number, keys = fields.ref()
        above, path = self.find(number, keys[:-1])
        _, name, type_name = above.of(fields.value("u16"))
        member_type, key = fields.value("text"), fields.value("u32")
        if not keys or keys[-1] != key or member_type != type_name:
            raise LogError("an addition contradicts itself")
        above.members.setdefault(key, Entity(type_name))
        above.named(key)
        return {"entity": path, "collection": name, "key": dotted(key)}

    def on_removal(self, fields):
        entity, path = self.find(*fields.ref())
        name, key = entity.of(fields.value("u16"))[1], fields.value("u32")
        entity.members.pop(key, None)
        entity.named(key)
        return {"entity": path, "collection": name, "key": dotted(key)}

    def on_current(self, _):
        self.current = True
        return {}

    def on_question(self, fields):
        return {"token": fields.value("u32")}

    on_answer = on_question

    def on_refusal(self, fields):
        raise LogError("refused: " + fields.value("text"))

    def state(self):
        """By interface: {"config": {...}, "status": {...}, "interface": {...}, ...}."""
        interfaces = {}
        for number, path in self.paths.items():
            part, _, name = path.partition("/")
            if not name: continue  # of the whole process
            interfaces.setdefault(name, {})[part] = self.roots[number].state()
        return interfaces

    def whole(self):
        """What belongs to no interface: {"storeState": {...}, ...}."""
        return {path: self.roots[number].state() for number, path in self.paths.items()
                if "/" not in path}


def framed(data):
    return struct.pack(">H", len(data)) + data


def exactly(stream, size):
    data = stream.read(size)
    if len(data) < size:
        raise EOFError
    return data


def next_frame(stream):
    """The bytes of the next frame; none where the log ends between two frames."""
    head = stream.read(2)
    if not head:
        return None
    length = struct.unpack(">H", head + exactly(stream, 2 - len(head)))[0]
    if not 1 <= length <= 1022:
        raise LogError("a frame of an impossible length")
    return exactly(stream, length)


def read(stream, send, follow, whole):
    log = Log()
    while follow or not log.current:
        data = next_frame(stream)
        if data is None:
            break
        content = log.frame(data)
        if content["frame"] == "question":
            send(framed(struct.pack(">BI", 11, content["token"])))
        if follow:
            print(json.dumps(content), flush=True)
    if not log.current:
        raise EOFError
    state = log.whole() if whole else log.state()
    print(json.dumps({"state": state}) if follow else json.dumps(state, indent=2))


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n", maxsplit=1)[0])
    parser.add_argument("socket", help="path of the Unix socket")
    parser.add_argument("--follow", action="store_true", help="write each frame as it is received")
    parser.add_argument("--whole", action="store_true",
                        help="write what belongs to no interface instead")
    arguments = parser.parse_args()
    name = b"decode.py"
    with socket.socket(socket.AF_UNIX) as connection:
        try:
            connection.connect(arguments.socket)
        except OSError as error:
            print(f"{arguments.socket}: {error.strerror}", file=sys.stderr)
            return 2
        connection.sendall(framed(struct.pack(">BIHdBH", 1, MAGIC, VERSION, time.monotonic(), 0,
                                              len(name)) + name))
        try:
            read(connection.makefile("rb"), connection.sendall, arguments.follow, arguments.whole)
        except LogError as error:
            print(error, file=sys.stderr)
            return 1
        except EOFError:
            print("the log ended within a frame, or before it was complete", file=sys.stderr)
            return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
