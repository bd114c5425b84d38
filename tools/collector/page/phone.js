// How a phone on the same network comes to trust the collector.

import { el, shown } from "./dom.js";

const QUIET = 4;  // light modules around a QR code, without which no camera finds it
const SVG = "http://www.w3.org/2000/svg";

/** A QR code of those rows of modules: dark on light whatever the page's colours are. */
function drawing(rows, label) {
  const make = (name, attributes) => {
    const element = document.createElementNS(SVG, name);
    for (const [key, value] of Object.entries(attributes)) element.setAttribute(key, value);
    return element;
  };
  const width = rows.length + 2 * QUIET;
  const dark = rows.flatMap((row, y) => [...row].map((module, x) => (module === "1" ? `M${x + QUIET} ${y + QUIET}h1v1h-1z` : "")));
  const svg = make("svg", { class: "qr", viewBox: `0 0 ${width} ${width}`, role: "img", "aria-label": label, "shape-rendering": "crispEdges" });
  svg.append(make("rect", { width, height: width, fill: "#fff" }), make("path", { d: dark.join(""), fill: "#000" }));
  return svg;
}

/** What to do, and with which addresses. */
export function phoneSteps({ phone, addresses }) {
  return el("div", { class: "phone" },
    drawing(phone.qrCode, `QR code of ${phone.page}`),
    el("ol", {},
      el("li", {}, "Have the phone, on the same network, open ", el("code", {}, shown(phone.page)), ", which the code holds. It warns, since it does not trust the collector yet: go on."),
      el("li", {}, "Install the certificate that this page has, for an iPhone as a profile. Its SHA-256 fingerprint has to be ", el("code", { class: "fingerprint" }, shown(phone.fingerprint)), "."),
      el("li", {}, "Have the host call the collector by one of ", addresses.map((address, at) => [at ? ", " : "", el("code", {}, shown(address))]), ".")),
    el("p", { class: "note" }, "The same certificate for other ways to the phone: ", el("a", { href: "/ca.pem", download: "ca.pem" }, "ca.pem"), ", ",
      el("a", { href: "/ca.mobileconfig", download: "ca.mobileconfig" }, "ca.mobileconfig"), ". Take it off the phone when you are done."));
}
