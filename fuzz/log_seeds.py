"""Bytes of the attribute log, as doc/attribute-log.md has it: of agents, readers and stores."""
import struct

CONFIG, STATUS = 1, 2
READER, WRITER, COPY = 0xf0, 0xf1, 0xf2  # the first byte: the receiver, and chunks of 32 KiB


def frame(kind, content=b""):
    return struct.pack(">HB", len(content) + 1, kind) + content


def words(text):
    return struct.pack(">H", len(text)) + text.encode()


def entity(root, *keys):
    return struct.pack(">IB", root, len(keys)) + b"".join(struct.pack(">I", key) for key in keys)


def attribute(number, form, value):
    return struct.pack(">H" + form, number, value)


HELLO = frame(1, struct.pack(">IHdB", 0x4d6f784c, 1, 1000.0, 1) + words("seed"))
CONFIGURES = frame(4, entity(CONFIG) + attribute(258, "I", 3) + attribute(259, "d", 60.0) +
                   attribute(264, "I", 3) + attribute(268, "B", 0))
ROOTS = (frame(2, struct.pack(">I", CONFIG) + words("config/eth0") + b"\1" +
               words("Gmp::Igmp::QuerierConfig") + b"\5" + words("eth0")) +
         frame(2, struct.pack(">I", STATUS) + words("status/eth0") + b"\0" +
               words("Gmp::Igmp::QuerierStatus") + b"\0"))
GROUP, SOURCE = 0xef010105, 0x0a000007


def walk(flags, *keys):
    return entity(STATUS, *keys) + struct.pack(">HB", 260, flags)


def member(kind, *keys):
    return (entity(STATUS, *keys) + struct.pack(">H", 260) + words("Gmp::Igmp::" + kind) +
            struct.pack(">I", keys[-1]))


STATE = (frame(5, walk(1)) + frame(6, member("QuerierGroupStatus", GROUP)) +
         frame(4, entity(STATUS, GROUP) + attribute(259, "I", 1)) + frame(5, walk(1, GROUP)) +
         frame(6, member("QuerierSourceStatus", GROUP, SOURCE)) +
         frame(4, entity(STATUS, GROUP, SOURCE) + attribute(261, "d", 1260.0)) +
         frame(8, walk(1, GROUP)) + frame(8, walk(1)) + frame(9))
REMOVED = frame(7, entity(STATUS) + struct.pack(">HI", 260, GROUP))
ATTR_LOGS = {
    "reader": bytes([READER]) + HELLO + frame(10, struct.pack(">I", 7)),
    "reader-who-writes": bytes([READER]) + HELLO + CONFIGURES,
    "writer": bytes([WRITER]) + HELLO + CONFIGURES + frame(10, struct.pack(">I", 8)),
    "writer-of-status": bytes([WRITER]) + HELLO + frame(6, member("QuerierGroupStatus", GROUP)),
    "copy": bytes([COPY]) + HELLO + ROOTS + STATE + REMOVED,
    "copy-in-small-chunks": bytes([0x20]) + HELLO + ROOTS + STATE,
    "copy-interrupted": bytes([COPY]) + HELLO + ROOTS + frame(5, walk(1)) + frame(8, walk(3)) +
                        frame(5, walk(3)) + frame(8, walk(1)) + frame(3, struct.pack(">I", STATUS)),
    "refused": bytes([COPY]) + HELLO + frame(12, words("no")),
    "another-version":
        bytes([COPY]) + frame(1, struct.pack(">IHdB", 0x4d6f784c, 2, 0, 0) + words("")),
    "too-long": bytes([READER]) + b"\xff\xff\1",
}

# What agents send to a store, in chunks of 32 KiB, and stores to an agent: alone, or behind what a
# store of this machine sends about itself.
CHUNKS, ALONE, BEHIND = 0xf0, 0xf0, 0xf1
QUERIER, INTAKE, CONFIGURED, PROCESS, INTERFACE, STORE = 11, 12, 13, 14, 15, 16
NAMED, UNNAMED = b"\5" + words("eth0"), b"\0"
ANSWER = frame(11, struct.pack(">I", 1))


def root(number, path, kind, argument=NAMED):
    return frame(2, struct.pack(">I", number) + words(path) + b"\0" + words(kind) + argument)


def group(number, *attributes):
    """Of the status, with these attributes."""
    return (frame(6, member("QuerierGroupStatus", number)) +
            frame(4, entity(STATUS, number) + b"".join(attributes)))


def lives(until, mode=0):
    """A group that began at 900: in mode exclude until then, or in mode include."""
    return (attribute(259, "I", mode), attribute(262, "d", 900.0), attribute(263, "d", until))


STATUS_ROOT = frame(2, struct.pack(">I", STATUS) + words("status/eth0") + b"\0" +
                    words("Gmp::Igmp::QuerierStatus") + b"\0")
SET = (root(QUERIER, "config/eth0", "Gmp::Igmp::QuerierConfig") +
       frame(4, entity(QUERIER) + attribute(258, "I", 5) + attribute(259, "d", 60.0)) +
       root(CONFIGURED, "configuredConfig/eth0", "Gmp::Igmp::QuerierConfig") +
       root(INTAKE, "intakeConfig/eth0", "Agent::IntakeConfig") +
       root(PROCESS, "intakeProcessConfig", "Agent::IntakeProcessConfig", UNNAMED) +
       root(INTERFACE, "interface/eth0", "Agent::InterfaceState"))
SOURCE_LEFT = (frame(5, walk(1, GROUP)) + frame(6, member("QuerierSourceStatus", GROUP, SOURCE)) +
               frame(4, entity(STATUS, GROUP, SOURCE) + attribute(260, "d", 900.0) +
                     attribute(261, "d", 1100.0)) + frame(8, walk(1, GROUP)))


def state(role=1):
    return STATUS_ROOT + frame(4, entity(STATUS) + attribute(258, "I", role) +
                               attribute(263, "I", 0x0a000002) + attribute(264, "I", 7) +
                               attribute(265, "d", 1e300))


GROUPS = (frame(5, walk(1)) + group(GROUP, *lives(1100.0)) + group(GROUP + 1, *lives(999.0)) +
          group(GROUP + 2) + frame(8, walk(1)))
INCLUDED = (frame(5, walk(1)) + group(GROUP, *lives(0.0, 1)) + SOURCE_LEFT + frame(8, walk(1)))
ENDS = frame(9) + ANSWER
AGENTS = {
    "state": bytes([CHUNKS]) + HELLO + SET + state() + GROUPS + frame(9),
    "state-in-small-chunks": bytes([0x30]) + HELLO + state() + INCLUDED + frame(9),
    "cut-in-a-walk": bytes([CHUNKS]) + HELLO + state() + GROUPS[:-40],
    "gone": bytes([CHUNKS]) + HELLO + SET + state() + GROUPS + frame(9) +
            frame(3, struct.pack(">I", STATUS)) + frame(3, struct.pack(">I", QUERIER)),
    "a-store": bytes([CHUNKS]) + HELLO + root(STORE, "storeState", "Agent::StoreState", UNNAMED) +
               frame(4, entity(STORE) + attribute(258, "I", 1)) + frame(9),
    "refused": bytes([CHUNKS]) + HELLO + frame(12, words("no")),
    "garbage": bytes([CHUNKS]) + b"HTTP/1.1 400 Bad Request\r\n\r\n",
}
STORES = {
    "state": bytes([BEHIND]) + SET + state() + GROUPS + ENDS,
    "included": bytes([BEHIND]) + state() + INCLUDED + ENDS,
    "no-querier-in-small-chunks": bytes([0x41]) + state(2) + GROUPS + ENDS,
    "another-role": bytes([BEHIND]) + state(77) + GROUPS + ENDS,
    "asks-nothing": bytes([BEHIND]) + SET + frame(4, entity(QUERIER) + attribute(268, "B", 0)) +
                    state(0) + GROUPS + ENDS,
    "not-permitted": bytes([BEHIND]) + SET + frame(4, entity(QUERIER) + attribute(258, "I", 99)) +
                     state() + ENDS,
    "empty": bytes([BEHIND]) + ENDS,
    "alone": bytes([ALONE]) + HELLO + state() + GROUPS + ENDS,
    "no-answer": bytes([BEHIND]) + state() + GROUPS + frame(9),
    "refused": bytes([ALONE]) + HELLO + frame(12, words("no")),
}
