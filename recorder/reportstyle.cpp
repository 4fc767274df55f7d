#include "recorder/reportstyle.h"

namespace vehicle_recorder {

const char* const report_style = R"css(
:root {
  color-scheme: light dark;
  --page: #f3f5f7; --card: #ffffff; --ink: #17212b; --quiet: #566270; --rule: #dbe1e7; --grid: #e6eaee;
  --closed: #eceff2; --c1: #0a66b0; --c2: #b34d00; --c3: #14733f; --c4: #7d43b0;
  --f1: #bd1f2d; --f2: #b06a00; --f3: #0a66b0; --f4: #7d43b0;
  --good: #14733f; --good-back: #e8f4ec; --look: #8a5200; --look-back: #fdf3e1; --trouble: #b01826;
  --trouble-back: #fcebec;
}
@media (prefers-color-scheme: dark) {
  :root {
    --page: #10161c; --card: #182028; --ink: #e7edf2; --quiet: #9fadb9; --rule: #2d3843; --grid: #27313b;
    --closed: #212a33; --c1: #62b4f4; --c2: #f29a5c; --c3: #55c98c; --c4: #c09df2;
    --f1: #f47c85; --f2: #e5ad4e; --f3: #62b4f4; --f4: #c09df2;
    --good: #6bd49c; --good-back: #14291f; --look: #f0bd6a; --look-back: #2c2313; --trouble: #f78d95;
    --trouble-back: #321a1d;
  }
}
* { box-sizing: border-box; }
html { -webkit-text-size-adjust: 100%; text-size-adjust: 100%; }
body {
  margin: 0; background: var(--page); color: var(--ink);
  font: 16px/1.5 system-ui, -apple-system, "Segoe UI", Roboto, "Noto Sans", "DejaVu Sans", sans-serif;
  font-variant-numeric: tabular-nums;
}
main { max-width: 62rem; margin: 0 auto; padding: 2.5rem 1.25rem 4rem; }
h1, h2, h3, p, dl, dd, ul, figure { margin: 0; padding: 0; }
header p.kind { color: var(--quiet); font-size: .875rem; letter-spacing: .02em; }
h1 { font-size: 1.75rem; line-height: 1.2; font-weight: 650; letter-spacing: -.01em; margin: .15rem 0 1.25rem; }
h2 { font-size: 1.25rem; line-height: 1.3; font-weight: 650; margin: 2.75rem 0 .85rem; }
h3 { font-size: 1rem; font-weight: 650; }
.verdict {
  display: grid; grid-template-columns: 2.25rem 1fr; gap: 0 .9rem; padding: 1.1rem 1.25rem 1.15rem;
  border-radius: .75rem; border-left: .35rem solid currentColor;
}
.verdict svg { width: 2.25rem; height: 2.25rem; display: block; }
.verdict h2 { margin: 0 0 .2rem; font-size: 1.25rem; line-height: 2.25rem; }
.verdict p { color: var(--ink); grid-column: 2; max-width: 46rem; }
.verdict p + p { margin-top: .35rem; }
.good { color: var(--good); background: var(--good-back); }
.look { color: var(--look); background: var(--look-back); }
.trouble { color: var(--trouble); background: var(--trouble-back); }
.tiles {
  display: grid; grid-template-columns: repeat(4, 1fr); gap: 1px; overflow: hidden;
  background: var(--rule); border: 1px solid var(--rule); border-radius: .75rem;
}
.tiles > div { background: var(--card); padding: .8rem 1rem .75rem; min-width: 0; }
.tiles dt { color: var(--quiet); font-size: .8125rem; line-height: 1.3; }
.tiles dd { font-size: 1.375rem; line-height: 1.3; font-weight: 600; letter-spacing: -.01em; white-space: nowrap; }
.tiles dd small { display: block; color: var(--quiet); font-size: .8125rem; font-weight: 400; letter-spacing: 0;
  min-height: 1.3em; }
.tiles .wrong dd { color: var(--trouble); }
figure, .card {
  background: var(--card); border: 1px solid var(--rule); border-radius: .75rem; padding: 1rem 1.25rem 1rem;
  margin-bottom: 1rem;
}
figcaption { display: flex; flex-wrap: wrap; align-items: baseline; gap: .25rem 1.25rem; margin-bottom: .6rem; }
figcaption p { color: var(--quiet); font-size: .875rem; }
.row { display: grid; grid-template-columns: 10.5rem 1fr; align-items: stretch; margin-bottom: .75rem; }
.row .name { padding-right: 1rem; font-size: .875rem; line-height: 1.35; }
.row .name b { display: block; font-weight: 600; }
.row .name span { color: var(--quiet); font-size: .8125rem; display: block; }
.row .name .sign::before { content: ""; display: inline-block; width: 1.1em; margin-right: .4em;
  vertical-align: .25em; border-top: 1px dashed var(--quiet); }
.row .name .sign.limit::before { border-top-color: var(--f1); }
.row .plot { position: relative; margin-left: 3.25rem; height: 4.5rem; }
.row.tall .plot { height: 10rem; }
.row.low .plot { height: .9rem; }
.row.axis { margin-bottom: 0; }
.row.axis .plot { height: 1.2rem; }
.row .plot svg { position: absolute; inset: 0; width: 100%; height: 100%; overflow: visible; }
.scale span {
  position: absolute; right: calc(100% + .5rem); transform: translateY(-50%);
  color: var(--quiet); font-size: .75rem; line-height: 1; white-space: nowrap;
}
.tick { position: absolute; transform: translateX(-50%); color: var(--quiet); font-size: .75rem;
  white-space: nowrap; }
.tick.begin { transform: none; }
.tick.end { transform: translateX(-100%); }
svg path { fill: none; vector-effect: non-scaling-stroke; }
.grid { stroke: var(--grid); stroke-width: 1px; }
.mark { stroke: var(--quiet); stroke-width: 1px; stroke-dasharray: 2 3; }
.limit { stroke: var(--f1); stroke-width: 1.25px; stroke-dasharray: 6 4; }
.curve { stroke-width: 1.6px; stroke-linejoin: round; stroke-linecap: round; }
.c1 { stroke: var(--c1); } .c2 { stroke: var(--c2); } .c3 { stroke: var(--c3); } .c4 { stroke: var(--c4); }
svg .band { stroke: none; fill-opacity: .28; }
.band.c1 { fill: var(--c1); } .band.c2 { fill: var(--c2); } .band.c3 { fill: var(--c3); }
  .band.c4 { fill: var(--c4); }
.closed { fill: var(--closed); }
.strip { fill: var(--c4); }
.bar { fill: var(--c1); }
.f1 { fill: var(--f1); background: var(--f1); } .f2 { fill: var(--f2); background: var(--f2); }
.f3 { fill: var(--f3); background: var(--f3); } .f4 { fill: var(--f4); background: var(--f4); }
.legend { display: flex; flex-wrap: wrap; gap: .15rem 1rem; list-style: none; font-size: .875rem;
  color: var(--quiet); }
.legend i { display: inline-block; width: .7rem; height: .7rem; border-radius: .15rem; margin-right: .4rem; }
.key { color: var(--quiet); font-size: .8125rem; margin: 0 0 1rem; }
.key i { display: inline-block; width: 1.1rem; height: .7rem; background: var(--closed);
  border: 1px solid var(--rule); margin-right: .4rem; }
.alone .row { grid-template-columns: 1fr; }
.alone .row .name { display: none; }
details { margin-top: .6rem; font-size: .875rem; }
summary { cursor: pointer; color: var(--quiet); width: fit-content; }
.wide { overflow-x: auto; }
table { border-collapse: collapse; width: 100%; font-size: .875rem; }
th, td { text-align: right; padding: .35rem .75rem; border-bottom: 1px solid var(--rule); vertical-align: top;
  white-space: nowrap; }
th:first-child, td:first-child, th.text, td.text { text-align: left; }
td.text { white-space: normal; overflow-wrap: break-word; }
td.text:last-child, th.text:last-child { width: 60%; }
table.stack td.text:last-child, table.stack th.text:last-child { width: auto; }
th:first-child, td:first-child { padding-left: 0; }
th:last-child, td:last-child { padding-right: 0; }
thead th { color: var(--quiet); font-weight: 500; font-size: .8125rem; }
tbody th { font-weight: 500; }
tbody tr:last-child > * { border-bottom: 0; }
.facts { display: grid; grid-template-columns: max-content 1fr; gap: .3rem 1.5rem; font-size: .9375rem; }
.facts dt { color: var(--quiet); }
.facts dd { overflow-wrap: anywhere; }
.spread { display: grid; grid-template-columns: repeat(7, auto); justify-content: space-between; gap: .6rem 1rem;
  margin-top: .35rem; }
.spread dt { color: var(--quiet); font-size: .8125rem; }
.spread dd { font-weight: 600; white-space: nowrap; }
.more { color: var(--quiet); font-size: .875rem; margin-top: .6rem; }
@media (max-width: 46rem) {
  main { padding: 1.25rem .75rem 3rem; }
  h1 { font-size: 1.375rem; }
  h2 { margin-top: 2rem; }
  .tiles { grid-template-columns: repeat(2, 1fr); }
  .tiles > div { padding: .65rem .75rem; }
  .tiles dd { font-size: 1.1875rem; }
  figure, .card { padding: .85rem .85rem; }
  .verdict { padding: .9rem .9rem 1rem; }
  .verdict p { grid-column: 1 / -1; }
  .row { grid-template-columns: 1fr; }
  .row .name { display: flex; flex-wrap: wrap; align-items: baseline; gap: 0 .6rem; margin-bottom: .3rem;
    padding: 0; }
  .row .plot { margin-left: 2.75rem; }
  .row.tall .plot { height: 8.5rem; }
  .tick.minor { display: none; }
  .spread { grid-template-columns: repeat(3, 1fr); }
  table.stack thead { display: none; }
  table.stack, table.stack tbody { display: block; }
  table.stack tr { display: grid; grid-template-columns: 1fr 1fr; gap: .35rem .75rem; padding: .6rem 0;
    border-bottom: 1px solid var(--rule); }
  table.stack tr:first-child { padding-top: 0; }
  table.stack tr:last-child { padding-bottom: 0; border-bottom: 0; }
  table.stack th, table.stack td { display: block; border: 0; padding: 0; text-align: left; }
  table.stack [data-name]::before { content: attr(data-name); display: block; color: var(--quiet);
    font-size: .8125rem; font-weight: 400; }
  .list th, .list td { padding: .3rem .45rem; font-size: .8125rem; }
  .facts { grid-template-columns: 1fr; gap: 0; }
  .facts dd { margin-bottom: .5rem; }
  .card.list { overflow-x: auto; }
}
@page { size: A4; margin: 14mm 13mm; }
@media print {
  :root {
    color-scheme: light;
    --page: #fff; --card: #fff; --ink: #000; --quiet: #444; --rule: #bbb; --grid: #ddd; --closed: #eee;
    --c1: #0a66b0; --c2: #b34d00; --c3: #14733f; --c4: #7d43b0; --f1: #bd1f2d; --f2: #b06a00; --f3: #0a66b0;
    --f4: #7d43b0;
    --good: #14733f; --good-back: #f2f9f5; --look: #8a5200; --look-back: #fdf8ee; --trouble: #b01826;
    --trouble-back: #fdf4f4;
  }
  * { -webkit-print-color-adjust: exact; print-color-adjust: exact; }
  body { font-size: 9.5pt; }
  main { max-width: none; padding: 0; }
  h1 { font-size: 17pt; }
  h2 { font-size: 12pt; margin: 1.4rem 0 .6rem; break-after: avoid; }
  .tiles { grid-template-columns: repeat(4, 1fr); }
  .tiles > div { padding: .45rem .7rem; }
  .tiles dd { font-size: 13pt; }
  figure, .card { padding: .7rem .9rem; margin-bottom: .7rem; }
  figure, .verdict, .tiles, tr, .spread { break-inside: avoid; }
  thead { display: table-header-group; }
  .row { grid-template-columns: 8.5rem 1fr; }
  .row .name { display: block; padding-right: 1rem; }
  .row .plot { margin-left: 3rem; height: 3.6rem; }
  .row.tall .plot { height: 7.5rem; }
  .row.low .plot { height: .8rem; }
  .alone .row { grid-template-columns: 1fr; }
  .alone .row .name { display: none; }
  .tick.minor { display: inline; }
  .spread { grid-template-columns: repeat(7, auto); }
  table.stack th, table.stack td { padding-left: .45rem; padding-right: .45rem; }
  table.stack :is(th, td):first-child { padding-left: 0; }
  table.stack :is(th, td):last-child { padding-right: 0; }
  table.stack thead th { white-space: normal; vertical-align: bottom; }
  .card.list, .wide { overflow: visible; }
  details { display: none; }
}
)css";

}  // namespace vehicle_recorder
