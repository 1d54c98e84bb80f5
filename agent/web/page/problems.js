// Everything that an operator should look at first, from the state as it is now.
// Without durations: a screen reader would say the list again each second.

// Counters of ordinary traffic, also of other links on the same wire, and high-water marks.
const ordinary = /^(?!error)(joins|roleChanges|otherVlanFrames|.*Sent|.*Received|.*Most)$/;
// What the others mean; the first that fits.
const meanings = [
  ["limits reached", /Limit$/], ["packets or queries lost", /(Lost|Failures)$/],
  ["to look into", /^(querierTimes|newQuerier|ownAddress)$/], ["packets refused", /./]];
const mismatchMinutes = 10;

function ofCounters(row) {
  const counts = Object.entries(row).filter(
      ([name, value]) => typeof value === "number" && value > 0 && !ordinary.test(name));
  const texts = new Map();
  for (const [name, value] of counts) {
    const [meaning] = meanings.find(([, pattern]) => pattern.test(name));
    texts.set(meaning, [...texts.get(meaning) ?? [], `${name} ${value}`]);
  }
  return [...texts].map(([meaning, list]) => `${row.interface}: ${meaning}: ${list.join(", ")}`);
}

function ofInterface(each) {
  if (!each.running) return [`${each.interface}: no querier runs; it is down or has no address`];
  if (each.role === "nonQuerier") {
    return [`${each.interface}: another router is the querier, ${each.querier}`];
  }
  return each.role === "initial" ? [`${each.interface}: nobody asks for members`] : [];
}

export class Problems {
  constructor(list) {
    this.list = list;
    this.otherQueries = new Map();  // the last count by interface
    this.mismatches = new Map();    // until when they are shown
  }

  // The attribute log has no event of it, but the counts of queries by version.
  countOtherVersions(interfaces, counters) {
    for (const each of interfaces) {
      const row = counters.find((counts) => counts.interface === each.interface) ?? {};
      const count = [1, 2, 3].filter((version) => version !== each.querierVersion).reduce(
          (sum, version) => sum + (row[`v${version}QueriesReceived`] ?? 0), 0);
      if (count > (this.otherQueries.get(each.interface) ?? 0)) {
        this.mismatches.set(each.interface, performance.now() + mismatchMinutes * 60000);
      }
      this.otherQueries.set(each.interface, count);
    }
  }

  show(agent, interfaces, counters) {
    this.countOtherVersions(interfaces, counters);
    const texts = [];
    if (!agent) texts.push("this page cannot reach its server");
    else if (!agent.connected) {
      texts.push(`no agent: ${agent.reason}; this is its last state`);
    }
    texts.push(...interfaces.flatMap(ofInterface), ...counters.flatMap(ofCounters));
    for (const [name, until] of this.mismatches) {
      if (until > performance.now()) texts.push(`${name}: queries of another version are received`);
    }
    if (texts.join("\n") === this.text) return;
    this.text = texts.join("\n");
    this.list.replaceChildren(...(texts.length ? texts : ["none"]).map((text) => {
      const item = document.createElement("li");
      item.textContent = text;
      if (!texts.length) item.className = "none";
      return item;
    }));
  }
}
