#include "cli/HtmlPageAssets.h"

namespace cli::html {

std::string_view pageStyle() {
  return R"css(
:root { --valid: #1b7f3b; --invalid: #b3261e; --indeterminate: #a05a00; --muted: #5f6368; }
* { box-sizing: border-box; }
body { font: 14px/1.45 system-ui, sans-serif; margin: 0; color: #202124; background: #f6f7f9; }
header { padding: 16px 24px 8px; background: #fff; border-bottom: 1px solid #dadce0; }
header h1 { font-size: 20px; margin: 0 0 4px; }
.meta, .note { color: var(--muted); }
.toolbar { display: flex; gap: 8px; align-items: center; margin: 8px 0; flex-wrap: wrap; }
.toolbar input { flex: 0 1 320px; padding: 4px 8px; font: inherit; }
.toolbar button { font: inherit; padding: 3px 10px; }
.toc { margin: 4px 0 8px; padding-left: 18px; }
.chip { display: inline-block; padding: 0 8px; border-radius: 10px; color: #fff; font-size: 12px; margin-right: 4px; text-decoration: none; }
.chip.valid { background: var(--valid); } .chip.invalid { background: var(--invalid); }
.chip.indeterminate { background: var(--indeterminate); }
main { padding: 8px 24px 40px; }
section.file { background: #fff; border: 1px solid #dadce0; border-radius: 6px; margin: 16px 0; padding: 12px 16px; }
section.file > h2 { font-size: 17px; margin: 0 0 8px; word-break: break-all; }
article.signature { border-top: 1px solid #e3e3e3; padding-top: 10px; margin-top: 10px; }
.banner { border-radius: 6px; padding: 10px 14px; color: #fff; margin-bottom: 10px; }
.banner.valid { background: var(--valid); } .banner.invalid { background: var(--invalid); }
.banner.indeterminate { background: var(--indeterminate); }
.banner .verdict { font-size: 18px; font-weight: 600; margin-right: 10px; }
.banner .indication { font-family: ui-monospace, monospace; font-size: 12px; opacity: .85; }
.banner p { margin: 4px 0 0; }
.facts { display: grid; grid-template-columns: repeat(auto-fit, minmax(320px, 1fr)); gap: 8px 24px; }
.facts h4, h4 { margin: 8px 0 4px; font-size: 14px; }
dl { display: grid; grid-template-columns: max-content 1fr; gap: 2px 12px; margin: 0; }
dt { color: var(--muted); } dd { margin: 0; word-break: break-word; }
.uri, code, .digest { font-family: ui-monospace, monospace; font-size: 12px; }
.uri { color: var(--muted); }
.yes { color: var(--valid); font-weight: 600; } .no { color: var(--invalid); font-weight: 600; }
table.refs { border-collapse: collapse; width: 100%; margin-top: 4px; }
table.refs th, table.refs td { border: 1px solid #e0e0e0; padding: 4px 6px; vertical-align: top; text-align: left; }
table.refs th, table.refs td.status { white-space: nowrap; }
table.refs td code { overflow-wrap: anywhere; }
table.refs th { background: #f1f3f4; font-weight: 600; }
tr.ref.failed { background: #fdecea; }
tr.ref.failed td.status { color: var(--invalid); font-weight: 600; }
td.digest { word-break: break-all; min-width: 14ch; }
td.digest.mismatch { background: #f9c7c2; outline: 2px solid var(--invalid); }
.warnings li .code { font-family: ui-monospace, monospace; font-size: 12px; background: #fff4e5; padding: 0 4px; }
.log-tree { font-family: ui-monospace, monospace; font-size: 12px; border: 1px solid #e0e0e0; padding: 6px; max-height: 520px; overflow: auto; background: #fbfbfb; }
.log-tree details > .entries { padding-left: 16px; border-left: 1px dotted #ccc; margin-left: 4px; }
.log-tree summary { cursor: pointer; }
.log-tree .failing > summary { color: var(--invalid); font-weight: 700; }
.log-tree .failing > summary::after { content: "  \2190 failing branch"; font-weight: 400; }
.log-tree .has-error > summary::after { content: "  (holds an error)"; color: var(--muted); }
.ln.err, .ln.result.failed { color: var(--invalid); }
.ln.cause { font-weight: 700; background: #fdecea; }
.ln .k { color: #1a5fb4; } .ln.info { color: #444; } .ln.ctx-empty { color: #999; }
pre.document, pre.log-text { white-space: pre-wrap; word-break: break-all; font-size: 12px; background: #fbfbfb;
  border: 1px solid #e0e0e0; padding: 8px; max-height: 640px; overflow: auto; }
.legend { list-style: none; padding: 0; display: flex; flex-wrap: wrap; gap: 4px 16px; }
.legend .span { color: var(--muted); font-size: 12px; }
.swatch { display: inline-block; min-width: 14px; height: 14px; margin-right: 4px; vertical-align: middle; border: 1px solid #999; font-size: 11px; line-height: 12px; }
.rm { text-decoration: line-through; color: #888; }
.sg { box-shadow: inset 0 -2px 0 #6a1b9a; }
.sig-mark { background: #6a1b9a; color: #fff; font-size: 11px; padding: 0 4px; border-radius: 3px; margin-right: 2px; user-select: none; }
.t0 { background: #ffe08a; } .t1 { background: #a8e6cf; } .t2 { background: #b9d7ff; } .t3 { background: #ffc1d9; }
.t4 { background: #d7c4ff; } .t5 { background: #ffd3a8; } .t6 { background: #c2f0f7; } .t7 { background: #e3f59c; }
.t8 { background: #f5c6a5; } .t9 { background: #c8d4e8; } .t10 { background: #f2b8f0; } .t11 { background: #bfe3b4; }
[hidden] { display: none !important; }
)css";
}

std::string_view pageScript() {
  return R"js(
(function () {
  'use strict';
  var filter = document.getElementById('log-filter');
  var count = document.getElementById('filter-count');
  var all = function (sel) { return Array.prototype.slice.call(document.querySelectorAll(sel)); };
  all('.log-tree details').forEach(function (d) { d.dataset.initial = d.open ? 'open' : ''; });
  // Shows the log lines holding the text and opens the branches above them; an empty
  // filter brings every branch back to how the page opened.
  function apply() {
    var q = filter.value.trim().toLowerCase();
    var shown = 0;
    all('.log-tree .ln').forEach(function (l) {
      var hit = !q || l.textContent.toLowerCase().indexOf(q) >= 0;
      l.hidden = !hit;
      if (q && hit) shown++;
    });
    all('.log-tree details').reverse().forEach(function (d) {
      if (!q) { d.hidden = false; d.open = d.dataset.initial === 'open'; return; }
      var own = d.firstElementChild.textContent.toLowerCase().indexOf(q) >= 0;
      var inner = d.querySelector('.entries > .ln:not([hidden]), .entries > details:not([hidden])') !== null;
      d.hidden = !own && !inner;
      d.open = inner;
      if (own) shown++;
    });
    count.textContent = q ? shown + ' matching' : '';
  }
  filter.addEventListener('input', apply);
  all('button[data-open]').forEach(function (b) {
    b.addEventListener('click', function () {
      var how = b.dataset.open;
      filter.value = '';
      apply();
      all('.log-tree details').forEach(function (d) {
        d.open = how === 'all' || (how === 'failing' && d.classList.contains('failing'));
      });
    });
  });
})();
)js";
}

}  // namespace cli::html
