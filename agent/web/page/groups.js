// The list of groups. Of thousands, only the rows that can be seen are in the document.
import {addressNumber, duration, element, mark, markTime, moment, secondsUntil} from "./format.js";

const spare = 5;  // rows beyond the edges
const keyOf = (name, group) => `${name} ${group}`;

function sourcesText(group) {
  return group.sources.map((each) => (each.excluded ? "not " : "") + each.source).join(", ");
}

function fieldsOf(group) {
  return [group.group, group.interface, group.filterMode, `v${group.compatibilityMode}`,
          group.lastReporter, sourcesText(group) || "all", null];  // the last one counts down
}

// A row stays the same element, so that its mark goes on.
function fill(row, group) {
  fieldsOf(group).forEach((text, at) => {
    const field = row.children[at] ?? row.appendChild(element("span", ""));
    if (text !== null && field.textContent !== text) field.textContent = text;
  });
  row.title = sourcesText(group);
}

export class GroupList {
  constructor(root) {
    this.list = root.querySelector("#groups");
    this.space = root.querySelector("#space");
    this.count = root.querySelector("#count");
    this.detail = root.querySelector("#detail");
    this.all = new Map();
    this.shown = [];
    this.rows = new Map();   // in the document, by key
    this.marks = new Map();  // since when, by key
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
    const key = keyOf(group.interface, group.group);
    const known = this.all.get(key);
    const wasShown = known !== undefined && this.matches(known);
    this.put(group);
    if (isMarked) {
      this.marks.set(key, performance.now());
      if (this.rows.has(key)) mark(this.rows.get(key));
    }
    if (this.matches(this.all.get(key)) === wasShown) this.renderSoon();
    else this.arrange();
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
    const key = keyOf(group.interface, group.group);
    if (!this.all.has(key)) this.all.set(key, {});
    // The same object, which the arranged list has.
    Object.assign(this.all.get(key), group, {ends: moment(ends), text: text.toLowerCase(),
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
    const shown = this.shown.slice(first, end);
    const seen = new Set(shown.map((each) => keyOf(each.interface, each.group)));
    for (const key of [...this.rows.keys()]) if (!seen.has(key)) this.forget(key);
    let before = this.space;
    shown.forEach((group, number) => {
      const row = this.rowOf(group);
      fill(row, group);
      if (before.nextSibling !== row) before.after(row);
      before = row;
      const at = first + number;
      row.style.top = `${at * this.height}px`;
      row.setAttribute("aria-posinset", at + 1);
      row.setAttribute("aria-setsize", this.shown.length);
      row.setAttribute("aria-selected", row.key === this.selected);
    });
    const active = this.rows.get(this.selected);
    if (active) this.list.setAttribute("aria-activedescendant", active.id);
    else this.list.removeAttribute("aria-activedescendant");
    this.countDown();
  }

  rowOf(group) {
    const key = keyOf(group.interface, group.group);
    if (this.rows.has(key)) return this.rows.get(key);
    const row = element("div", undefined, "row");
    row.id = `group-${key.replace(/[^\w.-]/g, "_")}`;
    row.key = key;
    row.setAttribute("role", "option");
    if (this.marks.has(key)) mark(row, performance.now() - this.marks.get(key));
    this.rows.set(key, row);
    return row;
  }

  // Every second.
  countDown() {
    for (const [key, row] of this.rows) {
      const group = this.all.get(key);
      if (group) row.lastChild.textContent = duration(secondsUntil(group.ends));
    }
    for (const [key, since] of this.marks) {
      if (performance.now() - since > markTime) this.marks.delete(key);
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
