// Values as people read them.

// 250.3 as "4m10s".
export function duration(seconds) {
  if (seconds === null || seconds === undefined) return "-";
  const whole = Math.max(0, Math.floor(seconds));
  const [h, m, s] = [Math.floor(whole / 3600), Math.floor(whole / 60) % 60, whole % 60];
  if (h >= 24) return `${Math.floor(h / 24)}d${h % 24}h`;
  if (h > 0) return `${h}h${String(m).padStart(2, "0")}m`;
  return m > 0 ? `${m}m${String(s).padStart(2, "0")}s` : `${s}s`;
}

export function timeOfDay(utc) {
  return new Date(utc).toLocaleTimeString([], {hour12: false});
}

// An IPv4 address as a number, for sorting.
export function addressNumber(text) {
  return text.split(".").reduce((number, byte) => number * 256 + Number(byte), 0);
}

export function element(name, text, className) {
  const made = document.createElement(name);
  if (text !== undefined) made.textContent = text;
  if (className) made.className = className;
  return made;
}

export const markTime = 2500;  // milliseconds, as in the style

// Changes are marked for a moment, which began so many milliseconds ago.
export function mark(made, age = 0) {
  if (age > markTime) return;
  made.classList.remove("new");
  void made.offsetWidth;  // the animation begins again
  made.style.animationDelay = `-${age}ms`;
  made.classList.add("new");
}

// Milliseconds of this machine until or since which a number of seconds counts.
export const moment = (seconds) => seconds === null ? null : performance.now() + seconds * 1000;
export const secondsUntil = (time) => time === null ? null : (time - performance.now()) / 1000;
