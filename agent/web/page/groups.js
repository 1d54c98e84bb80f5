// The list of groups. Of thousands, only the rows that can be seen are in the document.
import {addressNumber, duration, element, moment, secondsUntil} from "./format.js";

const spare = 5;  // rows beyond the edges
const keyOf = (name, group) => `${name} ${group}`;

function sourcesText(group) {
  return group.sources.map((each) => (each.excluded ? "not " : "") + each.source).join(", ");
}

function fieldsOf(group) {
  return [group.group, group.interface, group.filterMode, `v${group.compatibilityMode}`,
          group.lastReporter, sourcesText(group) || "all", ""];
}

export class GroupList {
  constructor(root) {
    this.list = root.querySelector("#groups");
    this.space = root.querySelector("#space");
    this.count = root.querySelector("#count");
    this.detail = root.querySelector("#detail");
    this.all = new Map();
    this.shown = [];
    this.rows = new Map();  // in the document, by key
    this.wanted = "";
    this.selected = null;
    this.isDue = false;
    this.list.addEventListener("scroll", () => this.renderSoon());
    this.list.addEventListener("keydown", (event) => this.key(event));
    this.list.addEventListener("click", (event) => this.select(event.target.closest(".row")?.key));
    new ResizeObserver(() => this.measure()).observe(this.list);
    this.measure();
  }

  // Rows are higher where the screen is narrow.
  measure() {
    const height = this.space.firstElementChild.offsetHeight;
    if (height === this.height) return this.renderSoon();
    this.height = height;
    this.arrange();
  }

  // All groups of an interface, in place of those that were known.
  ofInterface(name, groups) {
    for (const [key, each] of this.all) if (each.interface === name) this.all.delete(key);
    for (const group of groups) this.put(group);
    this.arrange();
  }

  interfacesAre(names) {
    for (const [key, each] of this.all) if (!names.has(each.interface)) this.all.delete(key);
    this.arrange();
  }

  // One that has changed; it is marked for a moment.
  changed(group, isMarked) {
    const isNew = !this.all.has(keyOf(group.interface, group.group));
    this.put(group);
    if (isNew) {
      this.arrange();
    } else {
      this.forget(keyOf(group.interface, group.group));
      this.renderSoon();
    }
    if (isMarked) this.marked = new Set(this.marked).add(keyOf(group.interface, group.group));
  }

  removed(name, group) {
    if (this.all.delete(keyOf(name, group))) this.arrange();
  }

  visible() {
    return [...this.rows.keys()].map((key) => this.all.get(key)).filter(Boolean);
  }

  search(text) {
    this.wanted = text.trim().toLowerCase();
    this.list.scrollTop = 0;
    this.arrange();
  }

  put(group) {
    const ends = group.filterMode === "include"
        ? Math.max(...group.sources.map((each) => each.timeLeftSeconds ?? 0), 0)
        : group.timeLeftSeconds;
    const text = `${group.group} ${group.interface} ${group.lastReporter} ${sourcesText(group)}`;
    this.all.set(keyOf(group.interface, group.group),
                 {...group, ends: moment(ends), text: text.toLowerCase(),
                  order: addressNumber(group.group)});
  }

  matches(group) {
    return this.wanted === "" || group.text.includes(this.wanted);
  }

  arrange() {
    this.shown = [...this.all.values()].filter((each) => this.matches(each)).sort(
        (a, b) => a.order - b.order || a.interface.localeCompare(b.interface));
    const all = this.all.size;
    this.count.textContent = this.wanted ? `${this.shown.length} of ${all}` : `${all}`;
    this.space.style.height = `${this.shown.length * this.height}px`;
    for (const key of [...this.rows.keys()]) this.forget(key);
    this.renderSoon();
  }

  forget(key) {
    this.rows.get(key)?.remove();
    this.rows.delete(key);
  }

  renderSoon() {
    if (this.isDue) return;
    this.isDue = true;
    requestAnimationFrame(() => {
      this.isDue = false;
      this.render();
    });
  }

  render() {
    const first = Math.max(0, Math.floor(this.list.scrollTop / this.height) - spare);
    const end = Math.min(this.shown.length,
                         Math.ceil((this.list.scrollTop + this.list.clientHeight) / this.height) +
                             spare);
    const seen = new Set();
    for (let at = first; at < end; ++at) {
      const group = this.shown[at];
      const key = keyOf(group.interface, group.group);
      seen.add(key);
      if (!this.rows.has(key)) this.rows.set(key, this.rowOf(key, group));
      const row = this.rows.get(key);
      row.style.top = `${at * this.height}px`;
      row.setAttribute("aria-posinset", at + 1);
      row.setAttribute("aria-setsize", this.shown.length);
      row.setAttribute("aria-selected", key === this.selected);
    }
    for (const key of [...this.rows.keys()]) if (!seen.has(key)) this.forget(key);
    const active = this.rows.get(this.selected);
    if (active) this.list.setAttribute("aria-activedescendant", active.id);
    else this.list.removeAttribute("aria-activedescendant");
    this.marked = undefined;
    this.countDown();
  }

  rowOf(key, group) {
    const row = element("div", undefined, this.marked?.has(key) ? "row new" : "row");
    row.id = `group-${key.replace(/[^\w.-]/g, "_")}`;
    row.key = key;
    row.setAttribute("role", "option");
    for (const text of fieldsOf(group)) row.append(element("span", text));
    row.title = sourcesText(group);
    this.list.append(row);
    return row;
  }

  // Every second.
  countDown() {
    for (const [key, row] of this.rows) {
      const group = this.all.get(key);
      if (group) row.lastChild.textContent = duration(secondsUntil(group.ends));
    }
    this.showDetail();
  }

  key(event) {
    const at = this.shown.findIndex((each) => keyOf(each.interface, each.group) === this.selected);
    const page = Math.max(1, Math.floor(this.list.clientHeight / this.height) - 1);
    const steps = {ArrowDown: 1, ArrowUp: -1, PageDown: page, PageUp: -page,
                   Home: -Infinity, End: Infinity};
    if (!(event.key in steps) || this.shown.length === 0) return;
    event.preventDefault();
    const next = Math.min(this.shown.length - 1, Math.max(0, at + steps[event.key]));
    const group = this.shown[next];
    const top = next * this.height;
    if (top < this.list.scrollTop) this.list.scrollTop = top;
    const bottom = top + this.height - this.list.clientHeight;
    if (bottom > this.list.scrollTop) this.list.scrollTop = bottom;
    this.select(keyOf(group.interface, group.group));
  }

  select(key) {
    if (key === undefined) return;
    this.selected = key;
    this.renderSoon();
  }

  showDetail() {
    const group = this.all.get(this.selected);
    this.detail.hidden = !group;
    if (!group) return;
    const text = `${group.group} on ${group.interface}: ${group.filterMode}, hosts of version ` +
        `${group.compatibilityMode}, last reporter ${group.lastReporter}; sources: ` +
        (sourcesText(group) || "all");
    if (this.detail.textContent !== text) this.detail.textContent = text;
  }
}
