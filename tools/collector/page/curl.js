// A request as a command line that sends it once more, byte for byte.

const BY_CURL = new Set(["host", "content-length", "connection", "transfer-encoding", "expect", "keep-alive", "te", "trailer"]);

/** For a shell: what is not printable ASCII is escaped, so that nothing that is pasted acts on the terminal. */
export function quoted(text) {
  if (/^[\x20-\x7e]*$/.test(text)) return `'${text.replaceAll("'", "'\\''")}'`;
  const bytes = new TextEncoder().encode(text);
  const escaped = Array.from(bytes, (byte) => {
    const character = String.fromCharCode(byte);
    if (byte < 0x20 || byte > 0x7e) return `\\${byte.toString(8).padStart(3, "0")}`;
    return character === "'" || character === "\\" ? `\\${character}` : character;
  });
  return `$'${escaped.join("")}'`;
}

export function curl(record, status) {
  const parts = ["curl --include --globoff --path-as-is"];
  if (status.caFile) parts.push(`--cacert ${quoted(status.caFile)}`);
  if (record.method !== "POST" || !record.body) parts.push(`--request ${quoted(record.method)}`);
  const fields = record.headerFields.filter(([name]) => !BY_CURL.has(name.toLowerCase()));
  const names = new Set(fields.map(([name]) => name.toLowerCase()));
  for (const [name, value] of fields) parts.push(`--header ${quoted(value === "" ? `${name};` : `${name}: ${value}`)}`);
  // What curl would say by itself.
  for (const name of ["Accept", "User-Agent", ...(record.body ? ["Content-Type"] : [])]) {
    if (!names.has(name.toLowerCase())) parts.push(`--header ${quoted(`${name}:`)}`);
  }
  if (record.body) parts.push("--data-binary @-");
  parts.push(quoted(status.service + record.target));
  const command = parts.join(" \\\n  ");
  return record.body ? `echo ${quoted(record.body)} | base64 -d | ${command}` : command;
}
