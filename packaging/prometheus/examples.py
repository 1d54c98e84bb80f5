"""Reads which metrics the rules and the dashboard name."""
import json
import pathlib
import re

FOLDER = pathlib.Path(__file__).resolve().parent
RULES = FOLDER / "igmpq.rules.yml"
TEST = FOLDER / "igmpq.rules.test.yml"
DASHBOARD = FOLDER / "igmpq.dashboard.json"


def metrics_in(text):
    """Names as they stand in expressions, where histograms have three for one."""
    found = set(re.findall(r"\b(?:igmp|process)_[a-z0-9_]+\b", text))
    return {re.sub(r"_(?:bucket|sum|count)$", "", name) for name in found}


def strings_of(value):
    """Every text in it, at any depth."""
    if isinstance(value, str): yield value
    if isinstance(value, dict): value = value.values()
    if isinstance(value, (str, bytes)) or not hasattr(value, "__iter__"): return
    for each in value:
        yield from strings_of(each)


def metrics_of_rules():
    return metrics_in(RULES.read_text("utf-8"))


def metrics_of_dashboard():
    return set().union(*map(metrics_in, strings_of(json.loads(DASHBOARD.read_text("utf-8")))))
