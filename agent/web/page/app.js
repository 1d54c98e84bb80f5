// The page: keeps what it shows in step with the server.
import {follow, groupsPath, known} from "./api.js";
import {duration, element, mark, moment, secondsUntil, timeOfDay} from "./format.js";
import {GroupList} from "./groups.js";
import {Problems} from "./problems.js";

const stateInterval = 2000;    // milliseconds
const refreshInterval = 5000;  // of the groups that can be seen
const gatherInterval = 200;    // of changes
const mostSingle = 50;         // groups that are asked for one by one
const mostEvents = 200;

const byId = (id) => document.getElementById(id);
const groups = new GroupList(document);
const problems = new Problems(byId("problems"));
const state = {agent: null, interfaces: [], counters: []};
const changed = new Map();  // groups by interface
let isGathering = false;

const markedColumns = new Set(["Address", "Role", "Elected querier", "Version"]);
const columns = [
  ["Interface", (each) => each.interface],
  ["Address", (each) => each.address ?? "-"],
  ["Role", (each) => each.running ? each.role : "stopped"],
  ["Elected querier", (each) => each.querier ?? "-"],
  ["Since", (each) => duration(
      each.querierUpSeconds === null ? null : -secondsUntil(each.since))],
  ["Version", (each) => String(each.querierVersion)],
  ["Next query", (each) => duration(secondsUntil(each.next))],
  ["Other expires", (each) => duration(secondsUntil(each.otherExpires))],
  ["Groups", (each) => String(each.groupCount)]];

function showInterfaces() {
  const body = byId("interfaces");
  while (body.rows.length > state.interfaces.length) body.deleteRow(-1);
  state.interfaces.forEach((each, at) => {
    const row = body.rows[at] ?? body.insertRow();
    const isKnown = row.cells[0]?.textContent === each.interface;
    columns.forEach(([name, column], number) => {
      const cell = row.cells[number] ?? row.insertCell();
      cell.dataset.name = name;  // for a narrow screen, which has no head
      const text = column(each);
      if (cell.textContent === text) return;
      cell.textContent = text;
      if (isKnown && markedColumns.has(name)) mark(cell);
    });
  });
}

function showHead() {
  byId("columns").replaceChildren(...columns.map(([name]) => {
    const head = element("th", name);
    head.scope = "col";
    return head;
  }));
}

function showAgent() {
  const {agent} = state;
  byId("agent").className = agent?.connected ? "on" : "off";
  // A screen reader says what changes there; it need not count the seconds.
  const text = agent?.connected ? "agent connected" : "no agent";
  if (byId("agent").textContent !== text) byId("agent").textContent = text;
  byId("since").textContent = agent ? `for ${duration(agent.sinceSeconds)}` : "";
}

async function loadState() {
  try {
    const [agent, interfaces, counters] =
        await Promise.all([known("agent"), known("interfaces"), known("counters")]);
    const wasConnected = state.agent?.connected;
    for (const each of interfaces) {
      each.since = moment(-(each.querierUpSeconds ?? 0));
      each.next = moment(each.nextQuerySeconds);
      each.otherExpires = moment(each.otherQuerierExpirySeconds);
    }
    const before = state.interfaces.map((each) => each.interface).join();
    Object.assign(state, {agent, interfaces, counters});
    if (before !== interfaces.map((each) => each.interface).join() ||
        (!wasConnected && agent.connected)) {
      await loadGroups();
    }
  } catch {
    state.agent = null;
  }
  showAgent();
  showInterfaces();
  problems.show(state.agent, state.interfaces, state.counters);
}

async function loadGroups() {
  groups.interfacesAre(new Set(state.interfaces.map((each) => each.interface)));
  for (const {interface: name} of state.interfaces) await loadGroupsOf(name);
}

async function loadGroupsOf(name) {
  groups.ofInterface(name, await known(groupsPath(name)) ?? []);
}

async function loadGroup(name, group, isMarked) {
  const now = await known(`${groupsPath(name)}/${group}`);
  if (now) groups.changed(now, isMarked);
  else groups.removed(name, group);
}

// Many changes at once are one request.
function gather(name, group) {
  if (!changed.has(name)) changed.set(name, new Set());
  changed.get(name).add(group);
  if (isGathering) return;
  isGathering = true;
  setTimeout(async () => {
    const all = [...changed];
    changed.clear();
    isGathering = false;
    for (const [of, members] of all) {
      if (members.size > mostSingle) await loadGroupsOf(of).catch(() => {});
      else await Promise.all([...members].map((each) => loadGroup(of, each, true).catch(() => {})));
    }
  }, gatherInterval);
}

function take(event) {
  const list = byId("events");
  const item = element("li", undefined, "new");
  item.append(element("time", timeOfDay(event.utc)),
              [event.interface, event.message ?? event.event].filter(Boolean).join(" "));
  list.prepend(item);
  while (list.children.length > mostEvents) list.lastChild.remove();
  if (event.event === "groupLeft") groups.removed(event.interface, event.group);
  else if (event.group && event.event !== "querySent") gather(event.interface, event.group);
  if (["role", "agentLost", "agentBack", "interfaceUp", "interfaceDown"].includes(event.event)) {
    loadState();
  }
  if (event.event === "eventsLost") loadGroups().catch(() => {});
}

byId("search").addEventListener("input", (event) => groups.search(event.target.value));
setInterval(() => {
  groups.countDown();
  showInterfaces();
}, 1000);
setInterval(loadState, stateInterval);
setInterval(() => {
  for (const each of groups.visible().slice(0, mostSingle)) {
    loadGroup(each.interface, each.group, false).catch(() => {});
  }
}, refreshInterval);
follow(take, (isOpen) => { if (isOpen) loadGroups().catch(() => {}); });
showHead();
loadState();
