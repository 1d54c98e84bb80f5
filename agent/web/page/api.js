// The requests of the page. Everything is of the origin that has served it.

export async function known(path) {
  const answer = await fetch(`api/v1/${path}`, {cache: "no-store"});
  if (answer.status === 404) return null;
  if (!answer.ok) throw new Error(`${path}: ${answer.status}`);
  return answer.json();
}

export const groupsPath = (name) => `interfaces/${encodeURIComponent(name)}/groups`;

const retryInterval = 3000;  // milliseconds

// Calls `take` for each event; `changed` with whether the stream is open.
export function follow(take, changed) {
  const stream = new EventSource("api/v1/events");
  stream.onopen = () => changed(true);
  stream.onerror = () => {
    changed(false);
    // It tries again of its own accord, but not after an error of the server or of a proxy.
    if (stream.readyState === EventSource.CLOSED) {
      setTimeout(() => follow(take, changed), retryInterval);
    }
  };
  stream.onmessage = (message) => take(JSON.parse(message.data));
}
