// What the page asks of the program.

const TOKEN = 'meta[name="page-token"]';

async function ask(path, options = {}) {
  return read(await fetch(path, { cache: "no-store", ...options }));
}

async function read(answer) {
  if (answer.status === 204) return null;
  const said = await answer.json();
  if (!answer.ok) throw new Error(said.error ?? `status ${answer.status}`);
  return said;
}

/** What changes something needs the token that is in the page; a collector that was started anew has another one. */
async function write(method, path, body) {
  const send = (token) => fetch(path, {
    method, cache: "no-store",
    headers: { "X-Page-Token": token, ...(body ? { "Content-Type": "application/json" } : {}) },
    body: body ? JSON.stringify(body) : undefined,
  });
  const meta = document.querySelector(TOKEN);
  let answer = await send(meta.content);
  if (answer.status === 403) {
    const page = new DOMParser().parseFromString(await (await fetch("/", { cache: "no-store" })).text(), "text/html");
    meta.content = page.querySelector(TOKEN)?.content ?? "";
    answer = await send(meta.content);
  }
  return read(answer);
}

/** The filter as a query; what is empty is left out. */
export function query(values) {
  const filled = Object.entries(values).filter(([, value]) => value !== "" && value !== null && value !== undefined);
  return filled.length ? `?${new URLSearchParams(filled)}` : "";
}

export const api = {
  status: () => ask("/api/status"),
  requests: (values, signal) => ask(`/api/requests${query(values)}`, { signal }),
  request: (id, signal) => ask(`/api/requests/${id}`, { signal }),
  faults: async () => (await ask("/api/faults")).faults,
  clear: () => write("DELETE", "/api/requests"),
  addFault: (fault) => write("POST", "/api/faults", fault),
  removeFault: (id) => write("DELETE", `/api/faults/${id}`),
  removeFaults: () => write("DELETE", "/api/faults"),
};

/** Tells of what happens from now on; the browser connects anew by itself, and misses nothing meanwhile. */
export function listen({ request, reset, faults, state }) {
  let source;
  const open = () => {
    source = new EventSource("/api/events");
    source.addEventListener("open", () => state("live"));
    source.addEventListener("error", () => {
      state("lost");
      if (source.readyState === EventSource.CLOSED) setTimeout(open, 2000);  // it gave up: the program answered otherwise
    });
    source.addEventListener("request", (event) => request(JSON.parse(event.data)));
    source.addEventListener("reset", () => reset());
    source.addEventListener("faults", (event) => {
      const said = JSON.parse(event.data);
      faults(Array.isArray(said) ? said : said.faults);
    });
  };
  open();
}
