// What the page asks of the program.

const token = () => document.querySelector('meta[name="page-token"]').content;

async function ask(path, options = {}) {
  const answer = await fetch(path, { cache: "no-store", ...options });
  if (answer.status === 204) return null;
  const said = await answer.json();
  if (!answer.ok) throw new Error(said.error ?? `status ${answer.status}`);
  return said;
}

const write = (method, path, body) => ask(path, {
  method,
  headers: { "X-Page-Token": token(), ...(body ? { "Content-Type": "application/json" } : {}) },
  body: body ? JSON.stringify(body) : undefined,
});

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
