// Looks at a report page from inside a browser, after it has been laid out: whether its figures are those
// of the client, and whether it can be read. What it finds is written to the end of the page, for --dump-dom.
// The script that includes it sets `wanted`: { scheme, stats: {area, owner, ext, age}, curve, check }.
"use strict";
{
  const failures = [];
  let checks = 0;
  const check = (holds, text) => {
    ++checks;
    if (!holds) failures.push(text);
  };
  const equal = (found, expected, what) => check(String(found) === String(expected), `${what}: ${found}, not ${expected}`);

  // ---- figures ----

  const rows = (table) => [...document.querySelectorAll(`tr[data-table="${table}"]`)];
  for (const [table, stats] of Object.entries(wanted.stats)) {
    equal(rows(table).length, stats.groups.length, `rows by ${table}`);
    stats.groups.forEach((group, i) => {
      const row = rows(table)[i];
      if (!row) return;
      equal(row.dataset.name, group.name, `group ${i} by ${table}`);
      equal(row.dataset.files, group.files, `files of ${group.name}`);
      equal(row.dataset.bytes, group.bytes, `bytes of ${group.name}`);
      check(row.offsetHeight > 0 && row.innerText.includes(String(group.files)), `${group.name} is not shown`);
    });
    equal(rows(`${table}-others`).length, stats.other_groups > 0 ? 1 : 0, `rest by ${table}`);
    if (stats.other_groups > 0) equal(rows(`${table}-others`)[0].dataset.bytes, stats.others.bytes, `bytes of the rest by ${table}`);
  }
  const all = wanted.stats.area;
  const totals = { all, documents: all.documents, parts: all.parts, indexes: all.indexes };
  for (const [name, sum] of Object.entries(totals)) {
    const card = document.querySelector(`[data-total="${name}"]`);
    equal(card?.dataset.files, sum.files, `files: ${name}`);
    equal(card?.dataset.bytes, sum.bytes, `bytes: ${name}`);
  }
  equal(document.querySelector("[data-folders]").dataset.folders, all.folders, "folders");
  wanted.curve.points.forEach((point, i) => {
    const row = rows("limit")[i];
    for (const figure of ["bytes", "versions", "documents"]) equal(row?.dataset[figure], point[figure], `${figure} beyond ${point.limit}`);
  });
  const kinds = Object.entries(wanted.check.codes);
  equal(rows("finding").length, kinds.length, "kinds of findings");
  for (const [code, count] of kinds) equal(document.querySelector(`tr[data-table="finding"][data-name="${code}"]`)?.dataset.count, count, code);

  // ---- charts ----

  const boxes = [...document.querySelectorAll("svg rect.area")].map((rect) => {
    const box = rect.getBoundingClientRect();
    return { name: rect.parentNode.getAttribute("class").replace("area-", ""), size: box.width * box.height };
  });
  const painted = boxes.reduce((sum, box) => sum + box.size, 0);
  for (const group of all.groups) {
    const share = group.bytes / all.bytes;
    if (share < 0.05) continue;
    const box = boxes.find((each) => each.name === group.name);
    check(box && Math.abs(box.size / painted - share) < 0.03, `the rectangle of ${group.name} is not as large as its share`);
  }
  const heights = [...document.querySelectorAll("rect.fill")].map((rect) => rect.getBoundingClientRect().height);
  const ages = wanted.stats.age.groups.map((group) => group.bytes);
  const scale = Math.max(...heights) / Math.max(...ages);
  equal(heights.length, ages.length, "bars");
  heights.forEach((height, i) => check(Math.abs(height - ages[i] * scale) < 4, `the bar of ${wanted.stats.age.groups[i].name} has another height`));

  // ---- colours ----

  check(matchMedia(`(prefers-color-scheme: ${wanted.scheme})`).matches, `the browser does not prefer ${wanted.scheme}`);
  const canvas = document.createElement("canvas").getContext("2d", { willReadFrequently: true });
  const rgb = (color) => {
    canvas.clearRect(0, 0, 1, 1);
    canvas.fillStyle = color;
    canvas.fillRect(0, 0, 1, 1);
    return [...canvas.getImageData(0, 0, 1, 1).data].slice(0, 3);
  };
  const luminance = ([r, g, b]) => {
    const linear = (value) => (value <= 10 ? value / 255 / 12.92 : ((value / 255 + 0.055) / 1.055) ** 2.4);
    return 0.2126 * linear(r) + 0.7152 * linear(g) + 0.0722 * linear(b);
  };
  const contrast = (one, other) => {
    const [a, b] = [luminance(one), luminance(other)].sort((x, y) => y - x);
    return (a + 0.05) / (b + 0.05);
  };
  const blend = (over, under, opacity) => over.map((value, i) => value * opacity + under[i] * (1 - opacity));
  const style = (element) => getComputedStyle(element);
  const page = rgb(style(document.body).backgroundColor);
  check(wanted.scheme === "dark" ? luminance(page) < 0.1 : luminance(page) > 0.8, `the page is not ${wanted.scheme}`);
  const card = rgb(style(document.querySelector("section")).backgroundColor);
  for (const element of document.querySelectorAll("h1, h2, p, a, th, td, dt, dd, caption, code, span")) {
    if (!element.innerText?.trim()) continue;
    const ratio = contrast(rgb(style(element).color), element.closest("section, dl") ? card : page);
    check(ratio >= 4.5, `too little contrast (${ratio.toFixed(1)}): ${element.innerText.slice(0, 40)}`);
  }
  for (const text of document.querySelectorAll("svg text")) {
    const below = text.closest("[class^=area-]");
    const ground = below ? rgb(style(below).getPropertyValue("--c")) : card;
    const faint = below ? blend(ground, card, 0.3) : card;
    const ink = rgb(style(text).fill);
    const ratio = Math.min(contrast(ink, ground), contrast(ink, faint));
    check(ratio >= 4.5, `too little contrast (${ratio.toFixed(1)}) in a chart: ${text.textContent}`);
  }

  // ---- keyboard and layout ----

  const stops = [...document.querySelectorAll("a[href], [tabindex='0']")];
  check(stops.length > 20 && stops.length < 200, `${stops.length} places to stop at`);
  for (const stop of stops) {
    stop.focus();
    check(document.activeElement === stop, `cannot be focused: ${stop.outerHTML.slice(0, 60)}`);
    const name = stop.getAttribute("aria-label") || stop.textContent.trim();
    check(name.length > 0, `has no name: ${stop.outerHTML.slice(0, 60)}`);
    if (stop.tagName === "g") equal(stop.querySelector("title")?.textContent, stop.getAttribute("aria-label"), "title");
  }
  equal(stops[0].getAttribute("href"), "#content", "the first stop skips to");
  check(document.querySelector("main#content") !== null, "there is nothing to skip to");
  equal(document.querySelectorAll("h1").length, 1, "main headings");
  for (const chart of document.querySelectorAll("svg.chart")) check(document.getElementById(chart.getAttribute("aria-labelledby")), "a chart has no heading");
  for (const section of document.querySelectorAll("section")) check(section.querySelector("h2"), "a section has no heading");
  check(document.documentElement.scrollWidth <= document.documentElement.clientWidth, "the page is wider than the window");
  equal(performance.getEntriesByType("resource").length, 0, "things that were fetched");

  const result = document.createElement("pre");
  result.id = "probe";
  result.textContent = failures.length ? `FAILED\n${failures.join("\n")}` : `PASSED ${checks} checks`;
  document.body.append(result);
}
