"""What an agent should have after each reload, from nothing but the rules of its manual.

  model = Model(given={"max-group-records": 99})
  draft = Draft(random)
  outcome = model.read(draft.sections, draft.lines(path), present=["eth0", "eth1"])

A value is that of the command line, else of the interface's section, else of [defaults], else the
default. A value that was set at run time stays until the files give another one than before.
"""
import fnmatch
import ipaddress

DEFAULT, COMMAND_LINE, RUN_TIME = "default", "command line", "set at run time"
# Of an interface, with its default and the values that a random edit gives it. Any two of these
# values fit together; those of CONTRADICTORY do not fit to some.
KEYS = {
    "robustness": (2, range(1, 8)),
    "query-interval": (125, range(30, 300)),
    "query-response-interval": (10, (1, 2.5, 10, 20)),
    "startup-query-interval": (0, (0, 20, 60.5)),
    "last-member-query-interval": (1, (0.5, 1, 2)),
    "last-member-query-count": (2, range(0, 6)),
    "max-groups": (65536, range(1000, 5000)),
    "max-group-records": (16, range(1, 100)),
    "report-new-queriers": (True, (True, False)),
    "permitted-queriers": ((), ((), ("10.77.0.0/24",), ("10.77.0.1/32", "10.78.0.0/16"))),
    "boundary": ((), ((), ("239.255.0.0/16",), ("239.254.0.0/16", "ff05::/16"))),
}
AGENT_KEYS = {
    "event-rate": (100, range(0, 1000)),
    "max-readers": (64, range(8, 100)),
    "stall-timeout": (30, (5, 30, 60.5)),
    "max-process-groups": (1048576, range(10000, 20000)),
}
# A running agent keeps what it has.
RESTART_KEYS = {"ring-size": (None, (1024, 2048)), "events": ("changes", ("all", "none"))}
CONTRADICTORY = ("query-response-interval", 29, 299)  # at run time


def shown(key, value):
    """As JSON of `igmpq show config` has it."""
    if key == "boundary": return ",".join(sorted_prefixes(value)) or "none"
    if key == "permitted-queriers": return ",".join(value) or "all"
    return value


def sorted_prefixes(prefixes):
    return map(str, sorted(map(ipaddress.ip_network, prefixes),
                           key=lambda each: (each.version, each)))


def json_key(key):
    first, *rest = key.split("-")
    seconds = key == "stall-timeout" or (key.endswith("-interval"))
    return first + "".join(map(str.capitalize, rest)) + ("Seconds" if seconds else "")


def section_of(interfaces, name):
    """An exact name wins, then the first pattern."""
    for section in interfaces:
        if section.name == name: return section
    for section in interfaces:
        if section.is_pattern() and fnmatch.fnmatchcase(name, section.name): return section
    return None


class Section:
    """A section of a file: values by key, and the line of each."""

    def __init__(self, title, name=None):
        self.title, self.name = title, name
        self.values, self.lines = {}, {}

    def is_pattern(self):
        return any(letter in self.name for letter in "*?[")


class Model:
    def __init__(self, given):
        self.given = given
        self.agent = {}   # (value, origin) by key
        self.wanted = {}  # by interface, then as `agent`
        self.set = {}     # values set at run time that differ from the wanted, by interface

    def resolved(self, path, keys, *sections):
        """The sections in the order in which they replace each other."""
        values = {key: (default, DEFAULT) for key, (default, _) in keys.items()}
        for section in sections:
            for key, value in section.values.items():
                if key in keys: values[key] = (value, f"{path}:{section.lines[key]}")
        values.update({key: (value, COMMAND_LINE) for key, value in self.given.items()
                       if key in keys})
        return values

    def read(self, path, draft, present):
        """Takes the draft over; False, and no change, where values set at run time contradict."""
        names = dict.fromkeys(
            name for section in draft.interfaces for name in
            (sorted(present) if section.is_pattern() else [section.name])
            if section_of(draft.interfaces, name) is section)
        wanted = {name: self.resolved(path, KEYS, draft.defaults,
                                      section_of(draft.interfaces, name)) for name in names}
        kept = {name: {key: value for key, value in self.set.get(name, {}).items()
                       if self.wanted[name][key][0] == wanted[name][key][0]}
                for name in names if name in self.wanted}
        for name, values in kept.items():
            after = {key: value for key, (value, _) in wanted[name].items()} | values
            if after["query-response-interval"] >= after["query-interval"]: return False
        self.touched = {name for name in set(wanted) | set(self.wanted)
                        if name not in wanted or name not in self.wanted}
        self.agent = self.resolved(path, AGENT_KEYS, draft.agent)
        self.wanted = wanted
        self.set = {name: {key: value for key, value in values.items()
                           if value != wanted[name][key][0]} for name, values in kept.items()}
        return True

    def set_at_run_time(self, name, key, value):
        values = self.set.setdefault(name, {})
        values.pop(key, None)
        if value != self.wanted[name][key][0]: values[key] = value

    def interface(self, name):
        """Values and origins, as JSON has them."""
        values = dict(self.wanted[name])
        values.update({key: (value, RUN_TIME) for key, value in self.set.get(name, {}).items()})
        return as_json(values)


def as_json(values):
    return {json_key(key): (shown(key, value), origin) for key, (value, origin) in values.items()}


class Draft:
    """A configuration that edits change, one at a time, and that is always valid."""

    def __init__(self, random, fixed, patterns):
        self.random = random
        self.fixed = fixed  # a section that no edit changes
        self.patterns = patterns
        self.defaults, self.agent = Section("[defaults]"), Section("[agent]")
        self.interfaces = [fixed]

    def edit(self):
        self.random.choice((self.edit_value, self.edit_value, self.edit_value, self.edit_agent,
                            self.edit_sections))()

    def edit_section(self, section, keys):
        key = self.random.choice(list(keys))
        if key in section.values and self.random.random() < 0.4:
            del section.values[key]
        else:
            section.values[key] = self.random.choice(keys[key][1])

    def edit_value(self):
        # What holds for all interfaces is changed in the defaults, but not for the fixed one.
        others = [section for section in self.interfaces if section is not self.fixed]
        self.edit_section(self.random.choice([self.defaults, *others]), KEYS)

    def edit_agent(self):
        self.edit_section(self.agent, AGENT_KEYS | RESTART_KEYS)

    def edit_sections(self):
        named = {section.name: section for section in self.interfaces}
        name = self.random.choice(self.patterns)
        if name in named:
            self.interfaces.remove(named[name])
        else:
            place = self.random.randrange(len(self.interfaces) + 1)
            self.interfaces.insert(place, Section("[[interface]]", name))

    def text(self):
        """The text of the file; notes the line of each value."""
        lines = []
        for section in (self.defaults, *self.interfaces, self.agent):
            lines.append(section.title)
            if section.name: lines.append(f'name = "{section.name}"')
            for key, value in section.values.items():
                lines.append(f"{key} = {toml(value)}")
                section.lines[key] = len(lines)
            lines.append("")
        return "\n".join(lines)

    def restart_keys(self):
        """Those that differ from what an agent was started with."""
        return {key for key, value in self.agent.values.items()
                if key in RESTART_KEYS and value != RESTART_KEYS[key][0]}


def toml(value):
    if isinstance(value, bool): return str(value).lower()
    if isinstance(value, tuple): return "[" + ", ".join(f'"{each}"' for each in value) + "]"
    return f'"{value}"' if isinstance(value, str) else str(value)
