#include "client/stgctl/report_parts.h"

namespace stgctl {

namespace {

// Without "<" and "&", so that the page is well formed as XML as it stands.
constexpr std::string_view kStyle = R"css(
:root { color-scheme: light dark;
  --page: #f6f7f9; --card: #ffffff; --ink: #1b2330; --soft: #545f70; --line: #d8dde5;
  --accent: #1f5fbf; --second: #b3470f; --focus: #b3008f;
  --docs: #9dc0f2; --user: #a3d9b4; --mail: #f3c490; --list: #cdb6ec; --semlets: #e2d68c;
  --error: #b3201a; --warning: #855300; --info: #1f5fbf; }
@media (prefers-color-scheme: dark) { :root {
  --page: #12161d; --card: #1b212b; --ink: #e8ecf2; --soft: #a6b0c0; --line: #343d4b;
  --accent: #7fb2ff; --second: #ffb07a; --focus: #ff8be6;
  --docs: #2f5c9c; --user: #2b6b44; --mail: #8a5620; --list: #624a8d; --semlets: #6e6423;
  --error: #ff8f87; --warning: #f0bd62; --info: #7fb2ff; } }
* { box-sizing: border-box; }
body { margin: 0; background: var(--page); color: var(--ink);
  font: 16px/1.5 system-ui, "Segoe UI", "DejaVu Sans", sans-serif; }
.skip { position: absolute; left: -999px; top: 0; background: var(--card); color: var(--ink);
  padding: .6rem 1rem; z-index: 1; }
.skip:focus { left: 0; }
header, main, footer { max-width: 1160px; margin: 0 auto; padding: 0 1.25rem; }
header { padding-top: 1.75rem; }
h1 { font-size: 1.7rem; line-height: 1.2; margin: 0 0 .25rem; }
h2 { font-size: 1.25rem; margin: 0 0 .75rem; }
h3 { font-size: 1rem; margin: 0 0 .4rem; }
p { margin: 0 0 .75rem; }
a { color: var(--accent); }
code, .path { font-family: ui-monospace, "DejaVu Sans Mono", monospace; font-size: .92em;
  overflow-wrap: anywhere; }
.soft { color: var(--soft); }
nav ul { list-style: none; display: flex; flex-wrap: wrap; gap: .25rem 1.25rem; padding: 0;
  margin: .75rem 0 0; }
section { background: var(--card); border: 1px solid var(--line); border-radius: 10px;
  padding: 1.1rem 1.25rem 1.25rem; margin: 1.1rem 0; }
:focus-visible { outline: 3px solid var(--focus); outline-offset: 2px; }
dl { display: grid; grid-template-columns: repeat(auto-fit, minmax(9.5rem, 1fr)); gap: .75rem;
  margin: 1.1rem 0 0; }
dl div { background: var(--card); border: 1px solid var(--line); border-radius: 10px;
  padding: .6rem .9rem; }
dt { color: var(--soft); font-size: .85rem; }
dd { margin: 0; font-size: 1.25rem; font-weight: 600; }
dd span { display: block; font-size: .85rem; font-weight: 400; color: var(--soft); }
.columns { display: grid; grid-template-columns: repeat(auto-fit, minmax(19rem, 1fr)); gap: 1.5rem;
  margin-top: 1.1rem; align-items: start; }
.beside { display: grid; grid-template-columns: minmax(0, 3fr) minmax(19rem, 2fr); gap: 1.5rem;
  align-items: start; }
@media (max-width: 56rem) { .beside { grid-template-columns: minmax(0, 1fr); } }
.scroll { overflow-x: auto; }
table { border-collapse: collapse; width: 100%; font-size: .9rem; font-variant-numeric:)css"
                                    R"css( tabular-nums; }
caption { text-align: left; font-weight: 600; padding-bottom: .35rem; }
th, td { text-align: left; padding: .28rem .5rem; border-bottom: 1px solid var(--line);
  vertical-align: top; }
th { font-weight: 600; }
td.n, th.n { text-align: right; white-space: nowrap; }
tbody th { font-weight: 400; overflow-wrap: anywhere; }
.error { color: var(--error); font-weight: 600; }
.warning { color: var(--warning); font-weight: 600; }
.info { color: var(--info); font-weight: 600; }
.say { font-size: 1.05rem; }
footer { padding-bottom: 2rem; font-size: .9rem; }
svg.chart { display: block; width: 100%; height: auto; }
svg.spark { width: 96px; height: 22px; display: block; }
svg text { fill: var(--ink); font-size: 12px; }
svg .heading { font-weight: 700; font-size: 13px; }
svg .name { font-weight: 600; }
svg .value, svg .tick { text-anchor: middle; }
svg .tick, svg .scale { fill: var(--soft); }
svg .scale { text-anchor: end; }
svg .axis, svg .grid { stroke: var(--line); stroke-width: 1; }
svg .area, svg .frame { fill: var(--card); stroke: var(--line); }
svg .area { stroke: none; fill: var(--c); fill-opacity: .35; }
svg .shade0 { fill: var(--c); } svg .shade1 { fill: var(--c); fill-opacity: .82; }
svg .shade2 { fill: var(--c); fill-opacity: .66; } svg .shade3 { fill: var(--c);)css"
                                    R"css( fill-opacity: .52; }
svg .shade4, svg .rest { fill: var(--c); fill-opacity: .38; }
.area-docs { --c: var(--docs); } .area-user { --c: var(--user); } .area-mail { --c: var(--mail); }
.area-list { --c: var(--list); } .area-semlets { --c: var(--semlets); }
.key { display: inline-block; width: .8em; height: .8em; border-radius: 2px; background: var(--c);
  border: 1px solid var(--line); margin-right: .4em; }
svg .fill { fill: var(--accent); }
svg .target { fill: transparent; }
svg polyline { fill: none; stroke-width: 2.5; stroke-linejoin: round; }
svg .freed { stroke: var(--accent); } svg .lost { stroke: var(--second); stroke-dasharray: 6 4; }
svg .freed-dot { fill: var(--accent); } svg .lost-dot { fill: var(--second); }
svg .legend-freed { fill: var(--accent); } svg .legend-lost { fill: var(--second); }
svg g:focus { outline: none; }
svg g:focus-visible .frame, svg g:focus-visible .target { stroke: var(--focus); stroke-width: 3; }
svg g.owner:hover .frame { stroke: var(--ink); stroke-width: 2; }
.legend span { margin-right: 1.25rem; white-space: nowrap; }
.legend .freed::before, .legend .lost::before { content: ""; display: inline-block; width: 1.6em;
  height: 0; border-top: 3px solid var(--accent); vertical-align: middle; margin-right: .4em; }
.legend .lost::before { border-top: 3px dashed var(--second); }
@media print { section { break-inside: avoid; } nav { display: none; } }
)css";

}  // namespace

std::string_view report_style() { return kStyle; }

}  // namespace stgctl
