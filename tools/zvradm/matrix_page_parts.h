// The fixed parts of the page of states: style, controls and program.
#pragma once

namespace zvradm {

inline constexpr char page_style[] = R"css(
:root { color-scheme: light dark; --ground: #fff; --ink: #1b1f24; --quiet: #6a737d; --line: #d8dee4; --bar: #f3f5f7; --mark: #0b5fd0; }
@media (prefers-color-scheme: dark) { :root { --ground: #15181c; --ink: #e6e9ec; --quiet: #98a1aa; --line: #333a41; --bar: #1e2328; --mark: #6aa9ff; } }
* { box-sizing: border-box; }
body { margin: 0; height: 100vh; display: flex; flex-direction: column; background: var(--ground); color: var(--ink); font: 14px/1.4 system-ui, sans-serif; }
header { padding: .6rem 1rem 0; } h1 { font-size: 1.15rem; margin: 0; } header p { margin: 0; color: var(--quiet); }
#controls { display: flex; flex-wrap: wrap; gap: .4rem 1rem; align-items: center; padding: .5rem 1rem; }
#controls input[type=search], #controls select { font: inherit; padding: .15rem .4rem; width: 13rem; max-width: 40vw; }
#legend { display: flex; flex-wrap: wrap; gap: .2rem .9rem; padding: 0 1rem .4rem; margin: 0; list-style: none; }
#legend span { display: inline-block; min-width: 2rem; text-align: center; border-radius: 3px; margin-right: .3rem; font-size: 11px; }
#told { padding: .2rem 1rem; min-height: 1.7rem; background: var(--bar); border-top: 1px solid var(--line); border-bottom: 1px solid var(--line); overflow-wrap: anywhere; }
#view { position: relative; flex: 1; overflow: auto; outline: none; min-height: 12rem; }
#view:focus-visible { box-shadow: inset 0 0 0 2px var(--mark); }
#space { position: absolute; top: 0; left: 0; pointer-events: none; }
#grid { position: sticky; top: 0; left: 0; overflow: hidden; }
#grid div { position: absolute; overflow: hidden; white-space: nowrap; }
#grid .cell { text-align: center; font-size: 11px; line-height: 21px; border-radius: 3px; cursor: default; }
#grid .row { padding-left: 1rem; text-overflow: ellipsis; line-height: 22px; cursor: pointer; background: var(--ground); }
#grid .column { cursor: pointer; background: var(--ground); writing-mode: vertical-rl; transform: rotate(180deg); text-overflow: ellipsis; line-height: 26px; font-size: 12px; padding-top: 4px; }
#grid .corner { background: var(--ground); cursor: pointer; padding: 0 0 4px 1rem; display: flex; align-items: flex-end; font-weight: 600; }
#grid .sorted { color: var(--mark); font-weight: 600; }
#grid .here { outline: 2px solid var(--mark); outline-offset: -2px; }
table.print { display: none; }
@media print {
  body { height: auto; display: block; } #controls, #view, #told { display: none; }
  table.print { display: table; border-collapse: collapse; font-size: 8px; } table.print td, table.print th { border: 1px solid #999; padding: 1px 3px; }
  table.print th.column { writing-mode: vertical-rl; }
}
)css";

inline constexpr char page_body[] = R"html(<div id="controls">
<label>Targets <input type="search" id="target-filter" placeholder="part of a name, * and ?"></label>
<label>Change files <input type="search" id="file-filter" placeholder="part of a name, * and ?"></label>
<label>State <select id="state-filter"><option value="">any</option></select></label>
<label><input type="checkbox" id="differing"> only change files that differ between these targets</label>
</div>
<ul id="legend" aria-label="Legend"></ul>
<div id="told" role="status" aria-live="polite"></div>
<div id="view" tabindex="0" role="grid" aria-label="States of change files on targets"><div id="space"></div><div id="grid"></div></div>
<noscript><p>This page draws its table with a script; scripts are switched off here.</p></noscript>
<table class="print" aria-hidden="true"></table>
)html";

inline constexpr char page_script[] = R"js('use strict';
const data = JSON.parse(document.getElementById('data').textContent);
const CELL_W = 26, CELL_H = 22, HEAD_W = 220, HEAD_H = 230, PRINT_MOST = 40000;
const byId = id => document.getElementById(id);
const view = byId('view'), space = byId('space'), grid = byId('grid'), told = byId('told');
const indexOf = new Map([...data.code].map((c, i) => [c, i]));
// Index into data.states of a pair.
function at(t, f) {
  const row = data.rows[t], p = f * data.width;
  return indexOf.get(row[p]) + (data.width > 1 ? 64 * indexOf.get(row[p + 1]) : 0);
}
const sign = s => s === data.none ? '·' : s === data.default ? 'd' : String(s);
// Colours by state: neighbours in the list of states lie far apart on the wheel.
const colours = data.states.map((s, i) => s === data.none ? null : s === data.default ? 'hsl(215 12% 55% / .35)' : `hsl(${(i * 137 + 90) % 360} 60% 50% / .45)`);

let rows = [], columns = [], rowSort = {by: null, down: false}, columnSort = {by: null, down: false};
let here = {r: 0, c: 0};

// Dots inside tokens have a backslash; who looks for a version need not write it.
const plain = text => text.toLowerCase().replace(/\\([.\\])/g, '$1');
function matcher(text) {
  text = plain(text.trim());
  if (!text) return () => true;
  if (!/[*?]/.test(text)) return name => plain(name).includes(text);
  const rule = new RegExp('^' + text.replace(/[.+^${}()|[\]\\]/g, '\\$&').replace(/\*/g, '.*').replace(/\?/g, '.') + '$');
  return name => rule.test(plain(name));
}
function ordered(list, sort, stateOf) {
  if (sort.by !== null) {
    const value = new Map(list.map(i => [i, data.states[stateOf(i)]]));
    list.sort((a, b) => (value.get(a) - value.get(b)) * (sort.down ? -1 : 1) || a - b);
  } else if (sort.down) list.reverse();
  return list;
}
function choose() {
  const t = matcher(byId('target-filter').value), f = matcher(byId('file-filter').value);
  const wanted = byId('state-filter').value;
  rows = data.targets.map((_, i) => i).filter(i => t(data.targets[i]));
  columns = data.files.map((_, i) => i).filter(i => f(data.files[i]));
  if (wanted !== '') {
    const state = Number(wanted);
    const has = new Set(), have = new Set();
    for (const r of rows) for (const c of columns) if (at(r, c) === state) { has.add(r); have.add(c); }
    rows = rows.filter(r => has.has(r));
    columns = columns.filter(c => have.has(c));
  }
  if (byId('differing').checked) columns = columns.filter(c => rows.some(r => at(r, c) !== at(rows[0], c)));
  rows = ordered(rows, rowSort, r => at(r, rowSort.by));
  columns = ordered(columns, columnSort, c => at(columnSort.by, c));
  here = {r: Math.min(here.r, Math.max(0, rows.length - 1)), c: Math.min(here.c, Math.max(0, columns.length - 1))};
  space.style.width = HEAD_W + columns.length * CELL_W + 'px';
  space.style.height = HEAD_H + rows.length * CELL_H + 'px';
  view.setAttribute('aria-rowcount', rows.length);
  view.setAttribute('aria-colcount', columns.length);
  draw();
  tell();
}
function piece(kind, x, y, w, h, text, title) {
  const d = document.createElement('div');
  d.className = kind;
  d.style.cssText = `left:${x}px;top:${y}px;width:${w}px;height:${h}px`;
  d.textContent = text;
  if (title) d.title = title;
  return d;
}
// Draws what can be seen: names along both edges stay, cells move under them.
function draw() {
  const w = view.clientWidth, h = view.clientHeight, x = view.scrollLeft, y = view.scrollTop;
  grid.style.width = w + 'px';
  grid.style.height = h + 'px';
  const firstRow = Math.floor(y / CELL_H), firstColumn = Math.floor(x / CELL_W);
  const lastRow = Math.min(rows.length, Math.ceil((y + h - HEAD_H) / CELL_H) + 1);
  const lastColumn = Math.min(columns.length, Math.ceil((x + w - HEAD_W) / CELL_W) + 1);
  const parts = document.createDocumentFragment();
  for (let r = firstRow; r < lastRow; ++r)
    for (let c = firstColumn; c < lastColumn; ++c) {
      const i = at(rows[r], columns[c]);
      const cell = piece('cell', HEAD_W + c * CELL_W - x, HEAD_H + r * CELL_H - y, CELL_W - 1, CELL_H - 1, sign(data.states[i]));
      if (colours[i]) cell.style.background = colours[i]; else cell.style.color = 'var(--quiet)';
      if (r === here.r && c === here.c) cell.classList.add('here');
      cell.dataset.r = r; cell.dataset.c = c;
      parts.append(cell);
    }
  for (let r = firstRow; r < lastRow; ++r) {
    const name = data.targets[rows[r]];
    const head = piece('row', 0, HEAD_H + r * CELL_H - y, HEAD_W, CELL_H, name, name + ': sort the change files by its states');
    if (columnSort.by === rows[r]) head.classList.add('sorted');
    head.dataset.target = rows[r];
    parts.append(head);
  }
  for (let c = firstColumn; c < lastColumn; ++c) {
    const name = data.files[columns[c]];
    const head = piece('column', HEAD_W + c * CELL_W - x, 0, CELL_W - 1, HEAD_H, name, name + ': sort the targets by its states');
    if (rowSort.by === columns[c]) head.classList.add('sorted');
    head.dataset.file = columns[c];
    parts.append(head);
  }
  parts.append(piece('corner', 0, 0, HEAD_W, HEAD_H, 'Target', 'Sort by the names again'));
  grid.replaceChildren(parts);
}
function tell() {
  if (!rows.length || !columns.length) { told.textContent = 'Nothing passes the filters.'; return; }
  const t = rows[here.r], f = columns[here.c], i = at(t, f);
  told.textContent = `${data.targets[t]} — ${data.files[f]}: ${data.words[i]}   (${rows.length} of ${data.targets.length} targets, ${columns.length} of ${data.files.length} change files)`;
}
function show() {
  const x = here.c * CELL_W, y = here.r * CELL_H;
  const w = view.clientWidth - HEAD_W, h = view.clientHeight - HEAD_H;
  if (x < view.scrollLeft) view.scrollLeft = x;
  if (x + CELL_W > view.scrollLeft + w) view.scrollLeft = x + CELL_W - w;
  if (y < view.scrollTop) view.scrollTop = y;
  if (y + CELL_H > view.scrollTop + h) view.scrollTop = y + CELL_H - h;
  draw();
  tell();
}
function sortBy(sort, by) {
  sort.down = sort.by === by ? !sort.down : by !== null;
  sort.by = by;
  choose();
}
view.addEventListener('scroll', () => requestAnimationFrame(draw));
addEventListener('resize', draw);
grid.addEventListener('mousemove', e => {
  const cell = e.target.closest('.cell');
  if (cell && (cell.dataset.r != here.r || cell.dataset.c != here.c)) { here = {r: +cell.dataset.r, c: +cell.dataset.c}; draw(); tell(); }
});
grid.addEventListener('click', e => {
  const d = e.target;
  if (d.dataset.file !== undefined) sortBy(rowSort, +d.dataset.file);
  else if (d.dataset.target !== undefined) sortBy(columnSort, +d.dataset.target);
  else if (d.classList.contains('corner')) {
    if (columnSort.by !== null) columnSort = {by: null, down: false};
    rowSort = {by: null, down: rowSort.by === null ? !rowSort.down : false};
    choose();
  }
});
// Arrows move, with Ctrl to the edge; t and f sort by the present target and change file, n by names.
view.addEventListener('keydown', e => {
  const far = e.ctrlKey ? 1e9 : 1, page = Math.max(1, Math.floor((view.clientHeight - HEAD_H) / CELL_H));
  const moves = {ArrowUp: [-far, 0], ArrowDown: [far, 0], ArrowLeft: [0, -far], ArrowRight: [0, far], PageUp: [-page, 0], PageDown: [page, 0], Home: [0, -1e9], End: [0, 1e9]};
  const move = moves[e.key];
  if (move) {
    here.r = Math.max(0, Math.min(rows.length - 1, here.r + move[0]));
    here.c = Math.max(0, Math.min(columns.length - 1, here.c + move[1]));
    show();
  } else if (e.key === 't' && rows.length) sortBy(columnSort, rows[here.r]);
  else if (e.key === 'f' && columns.length) sortBy(rowSort, columns[here.c]);
  else if (e.key === 'n') { rowSort = {by: null, down: false}; columnSort = {by: null, down: false}; choose(); }
  else return;
  e.preventDefault();
});
for (const id of ['target-filter', 'file-filter', 'state-filter', 'differing']) byId(id).addEventListener('input', choose);
addEventListener('beforeprint', () => {
  const table = document.querySelector('table.print');
  table.replaceChildren();
  if (rows.length * columns.length > PRINT_MOST) {
    table.insertRow().insertCell().textContent = `Too many cells to print (${rows.length} x ${columns.length}); narrow the filters first.`;
    return;
  }
  const head = table.createTHead().insertRow();
  head.insertCell().textContent = 'Target';
  for (const c of columns) { const th = document.createElement('th'); th.className = 'column'; th.textContent = data.files[c]; head.append(th); }
  for (const r of rows) {
    const line = table.insertRow();
    line.insertCell().textContent = data.targets[r];
    for (const c of columns) line.insertCell().textContent = sign(data.states[at(r, c)]);
  }
});
data.states.forEach((s, i) => {
  const item = document.createElement('li'), mark = document.createElement('span');
  mark.textContent = sign(s);
  if (colours[i]) mark.style.background = colours[i];
  item.append(mark, `${data.words[i]} (${data.pairs[i]})`);
  byId('legend').append(item);
  byId('state-filter').add(new Option(data.words[i], i));
});
choose();
)js";

}  // namespace zvradm
