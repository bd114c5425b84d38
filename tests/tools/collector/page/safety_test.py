"""Whatever a request holds stays text: it never becomes markup, script, style or an address that is asked for."""

import unittest

from page_case import PageCase, message

VECTORS = [
    "<script>HIT</script>", "<img src=x onerror=HIT>", "<svg onload=HIT>", "<svg><script>HIT</script></svg>",
    "<iframe srcdoc='<script>parent.HIT</script>'></iframe>", "<iframe src=javascript:HIT></iframe>", "<body onload=HIT>",
    "<details open ontoggle=HIT>", "<input autofocus onfocus=HIT>", "<a href=javascript:HIT>a</a>", "<math><mi xlink:href=javascript:HIT>",
    "<video><source onerror=HIT></video>", "<object data=javascript:HIT>", "<embed src=javascript:HIT>",
    "<style>@import 'http://192.0.2.1/a.css'</style>", "<link rel=stylesheet href=http://192.0.2.1/a.css>",
    "<meta http-equiv=refresh content='0;url=http://192.0.2.1/'>", "<base href=http://192.0.2.1/>", "<form action=http://192.0.2.1/><button>",
    "<template><script>HIT</script></template>", "javascript:HIT", "{{constructor.constructor('HIT')()}}", "${HIT}", "&lt;script&gt;HIT&lt;/script&gt;",
    "<img src=http://192.0.2.1/a.png>",
]
WRAPPERS = ["{}", "\"'>{}", "</title></textarea></style></script>{}", "-->{}<!--", "]]>{}", "\u202e{}\u2066", "\x00{}\x1b[31m", "'\"`;{}//\\"]
PAYLOADS = [wrapper.format(vector.replace("HIT", "window.hit=1")) for vector in VECTORS for wrapper in WRAPPERS]

# In those elements and all within them, "places".
FINDINGS = """
    const allowed = new Set(['HTML', 'HEAD', 'BODY', 'META', 'TITLE', 'LINK', 'SCRIPT', 'HEADER', 'H1', 'H2', 'H3', 'P', 'SPAN', 'DIV', 'BUTTON',
      'A', 'FORM', 'INPUT', 'FIELDSET', 'LEGEND', 'LABEL', 'B', 'SELECT', 'OPTION', 'ASIDE', 'MAIN', 'SECTION', 'DIALOG', 'DL', 'DT', 'DD', 'KBD',
      'NOSCRIPT', 'UL', 'OL', 'LI', 'SMALL', 'EM', 'I', 'CANVAS', 'DATALIST', 'TABLE', 'CAPTION', 'COLGROUP', 'COL', 'THEAD', 'TBODY', 'TR', 'TH',
      'TD', 'DEL', 'PRE', 'MARK', 'CODE', 'TIME']);
    const found = [];
    for (const element of places.flatMap((place) => [place, ...place.querySelectorAll('*')])) {
      if (!allowed.has(element.tagName)) found.push(element.tagName);
      for (const { name, value } of element.attributes) {
        if (name.startsWith('on') || (/^(href|src|action)$/.test(name) && !/^(\\/api\\/|#|icon.svg|page.css|main.js)/.test(value))) found.push(`${name}=${value}`);
      }
    }
    if (document.querySelectorAll('script').length !== 1) found.push('script');
    if (window.hit) found.push('it ran');
    return found;
"""

EVERYWHERE = f"const places = [document.documentElement]; {FINDINGS}"


class SafetyTest(PageCase):
    def setUp(self):
        super().setUp()
        for number, payload in enumerate(PAYLOADS):
            self.collector.add(
                message(number, device=payload, bundle=payload, city=payload, userAgent=payload, languages=[payload], **{payload: payload}),
                kind="message", status=400 if number % 2 else 200, reason=payload if number % 2 else None, warnings=[payload], fault=payload,
                eventId=payload, lat=52.5 + number / 1000, target="/" + payload, remoteAddress=payload, method=payload,
                headerFields=[[payload, payload]], answer={"status": 200, "headerFields": [["X", payload]]})

    def test_there_are_two_hundred_of_them(self):
        self.assertEqual(len(set(PAYLOADS)), 200)

    def test_in_the_list_the_devices_the_filters_and_one_request_whole(self):
        self.show()
        shown = self.browser.run_async("""
            const { visible } = await import('/dom.js');
            const { short } = await import('/format.js');
            const wait = (holds) => new Promise((resolve, reject) => {
              const end = Date.now() + 60000;
              const look = () => holds() ? resolve() : Date.now() > end ? reject(new Error(String(holds))) : setTimeout(look, 2);
              look();
            });
            const findings = (...places) => { %s };
            const everywhere = () => findings(document.documentElement);
            const result = { text: 0, found: [] };
            document.querySelector('.rows').focus();
            for (let id = given[0].length; id > 0; --id) {
              const payload = visible(given[0][id - 1]);
              document.querySelector('.rows').dispatchEvent(new KeyboardEvent('keydown', { key: 'ArrowDown', bubbles: true }));
              const changed = () => findings(document.getElementById('detail'), document.getElementById(`row-${id}`));
              await wait(() => document.querySelector('#detail h2')?.textContent === `Message ${id}` && document.querySelector('#detail tr'));
              const seen = [...document.querySelectorAll('#part [data-key="city"] td:nth-child(2) > span')].map((one) => one.textContent);
              const rowOk = document.getElementById(`row-${id}`).querySelector('.c-bundle').textContent === payload &&
                document.getElementById(`row-${id}`).querySelector('.c-device').textContent === visible(short(given[0][id - 1]));
              // What a choice changes each time; everything now and then.
              result.found.push(...(id %% 20 === 0 ? everywhere() : changed()));
              document.getElementById('part-raw').click();
              result.found.push(...changed());
              document.getElementById('part-fields').click();
              const field = document.querySelector('#part th').textContent;
              result.found.push(...changed());
              document.getElementById('part-message').click();
              if (seen[0] === payload && rowOk && field === payload) result.text += 1;
            }
            return result;""" % FINDINGS, PAYLOADS)
        self.assertEqual(shown["found"], [])
        self.assertEqual(shown["text"], len(PAYLOADS))

    def test_on_the_timeline_the_map_and_among_the_fault_switches(self):
        self.show()
        for payload in PAYLOADS[:25]:
            self.collector.faults.append({"id": len(self.collector.faults) + 1, "endpoint": payload, "device": payload, "action": "status",
                                          "status": 302, "location": payload, "seconds": 0, "count": None, "done": 0})
        with self.collector.changed:
            self.collector.tell("faults", {"faults": self.collector.faults})
        self.browser.until("return document.querySelectorAll('.faults [data-fault]').length >= 25")
        for view in ("timeline", "map", "faults"):
            self.browser.click(f"#tab-{view}")
            self.assertEqual(self.browser.run(EVERYWHERE), [], view)
        self.browser.until("return document.querySelectorAll('.lane').length > 0")
        self.browser.until("return document.querySelectorAll('.tracks button').length > 0")

    def test_in_the_page_s_own_address(self):
        for payload in PAYLOADS[::16]:
            self.browser.open("about:blank")
            self.browser.open(f"{self.collector.url}/#device={payload.encode().hex()}&text=x&view=__proto__&id=-1&outcome=\"]<img>")
            self.browser.until("return performance.getEntriesByName('loaded').length")
            self.assertEqual(self.browser.run(EVERYWHERE), [])


if __name__ == "__main__":
    unittest.main()
