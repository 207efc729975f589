// Puts the page together: charts, lanes, log, and the tools above them.

const run = readRun(JSON.parse(document.getElementById("run").textContent));
runLength = run.end;

const MOST_FINDINGS = 500;

const byId = (id) => document.getElementById(id);
const view = new View(run);
const pictures = byId("pictures");
const lanesBox = byId("lanes-box");
const tip = byId("tip");

const charts = run.tracks.map((track, index) => new TrackChart(
    run, index, view, byId("charts"), index === run.tracks.length - 1,
    (which, t, left, top) => {
        hover(t);
        const facts = t === null ? null : trackFacts(run, which, t, 9);
        showTip(facts && `${track.label} at ${timeText(t)}`, facts, charts[which].plot, left, top);
    }));
const lanes = new Lanes(run, view, lanesBox, byId("lanes"), (what, t, left, top) => {
    hover(t);
    showTip(...describeHit(what, t), lanes.plot, left, top);
}, pick);
const log = new Log(run, view);

for (const chart of charts) {
    chart.plot.over.addEventListener("click", () => {
        view.mark(chart.plot.posToVal(chart.plot.cursor.left, "x"));
    });
}

function describeHit(what, t) {
    if (!what) return [null, null];
    if (what.lock) return [`lock ${what.lock.handle}`, lockFacts(run, what.lock, t, 12)];
    if (what.request) return [what.request.text, requestFacts(what.request)];
    if (what.finding) return ["finding", [["time", timeText(what.finding.t)], ["", what.finding.text]]];
    if (what.control) {
        const {since, end} = what.control;
        return [`thermal ${levelText(what.control)}`, [["control type", controlText(what.control)],
                                                       ["from", timeText(since)], ["to", timeText(end)]]];
    }
    const {since, end, request} = what.breakthrough;
    return ["limit breakthrough", [["request", requestText(run, request)],
                                   ["from", timeText(since)], ["to", timeText(end)],
                                   ["time left", spanText(Math.max(0, end - t))]]];
}

// Leads to the moment of a finding: the charts move there, the log shows what it is about.
function lead(finding) {
    const isIt = (entry) =>
        finding.lock ? entry.source.term && entry.source.lock === finding.lock :
        finding.request !== NOBODY && entry.source.request?.index === finding.request;
    if (!log.selectEntry(isIt) && (view.who.size > 0 || view.find)) {
        view.who.clear();
        view.search("", view.all);
        log.selectEntry(isIt);
    }
    view.lead(finding.t);
}

// A click on the lanes: what is there is looked up in the log, else the time is marked.
function pick(what, t) {
    if (what?.finding) {
        lead(what.finding);
        return;
    }
    const isFound = what && log.selectEntry(({source}) =>
        what.lock ? source.term && source.lock === what.lock && source.term === stepAt(what.lock.terms, t) :
        what.request ? source.request === what.request :
        what.breakthrough && source.breakthrough === what.breakthrough);
    view.mark(isFound ? log.selected.t : t);
}

function hover(t) {
    place(byId("crosshair"), t);
    for (const chart of charts) chart.read(t ?? view.at);
}

function place(line, t) {
    line.hidden = t === null || t < view.from || t > view.to;
    if (!line.hidden) line.style.left = `${lanes.plot.valToPos(t, "x") + lanes.plot.over.offsetLeft}px`;
}

function showTip(headline, facts, plot, left, top) {
    tip.hidden = !headline;
    if (!headline) return;
    tip.replaceChildren(factList(headline, facts));
    const box = plot.over.getBoundingClientRect();
    const gap = 16;
    const x = box.left + left + gap;
    const y = box.top + top + gap;
    const isTooWide = x + tip.offsetWidth > innerWidth - 4;
    tip.style.left = `${Math.max(4, isTooWide ? box.left + left - gap - tip.offsetWidth : x)}px`;
    tip.style.top = `${Math.max(4, Math.min(y, innerHeight - tip.offsetHeight - 4))}px`;
}

// Every plot as wide as the lanes are without their scroll bar. The charts share half the height, or
// what few lanes leave.
function layOut() {
    const isNarrow = matchMedia("(max-width: 820px)").matches;
    const width = Math.max(200, lanesBox.clientWidth);
    const room = isNarrow ? 110 * charts.length :
        Math.max(pictures.clientHeight * 0.54, pictures.clientHeight - lanes.height() - 10);
    const height = Math.min(190, Math.max(64, Math.floor((room - 26) / Math.max(1, charts.length))));
    for (const chart of charts) chart.resize(width, height);
    lanes.resize(width);
    placeLines();
}

function placeLines() {
    place(byId("mark"), view.at);
    hover(null);
}

function showFold() {
    const folded = lanes.folded();
    const button = byId("fold");
    button.hidden = folded === 0 && lanes.isFolded;
    button.textContent = folded === 0 && !lanes.isFolded ? "Fold lanes with nothing in view"
        : `${folded} lane${folded === 1 ? " has" : "s have"} nothing in view; show ${folded === 1 ? "it" : "them"}`;
}

function refold(action) {
    action();
    showFold();
    layOut();
}

function showRange() {
    if (lanes.isFolded) refold(() => lanes.fold());
    for (const plot of [...charts, lanes]) plot.show(view.from, view.to);
    byId("range").textContent = `${timeText(view.from)} – ${timeText(view.to)}`;
    // The plots take their new scales at the end of this turn.
    queueMicrotask(placeLines);
}

function showFilter() {
    refold(() => lanes.filter());
    log.filter();
    byId("search").value = view.find;
    byId("all").checked = view.all;
    byId("chips").replaceChildren(...[...view.who].map((who) => {
        const chip = document.createElement("button");
        chip.textContent = `${who.replace(":", " ")} ✕`;
        chip.title = "Take it out of the filter";
        chip.addEventListener("click", () => view.toggle(who));
        return chip;
    }));
    fillPick();
}

function fillPick() {
    const counts = new Map();
    for (const request of run.requests) counts.set(request.who, (counts.get(request.who) ?? 0) + 1);
    const option = (value, text) => Object.assign(document.createElement("option"), {value, textContent: text});
    const groups = [["client", "Clients"], ["command", "Commands"]].map(([kind, label]) => {
        const group = Object.assign(document.createElement("optgroup"), {label});
        const names = [...counts.keys()].filter((who) => who.startsWith(`${kind}:`) && !view.who.has(who)).sort();
        group.append(...names.map((who) => option(who, `${who.slice(kind.length + 1)} (${counts.get(who)})`)));
        return group;
    }).filter((group) => group.children.length > 0);
    const first = view.who.size ? [option("", "add…"), option("*", "everything")] : [option("", "everything")];
    byId("pick").replaceChildren(...first, ...groups);
}

function describeRun() {
    byId("title").textContent = run.title;
    const count = (number, noun) => `${number} ${noun}${number === 1 ? "" : "s"}`;
    // The start is none that anybody made.
    const made = run.requests.filter((request) => request.line || request.client || request.command);
    byId("facts").textContent = [
        run.device, run.source, run.scenes && `scenes ${run.scenes}`, timeText(run.end),
        count(made.length, "request"), count(run.locks.length, "lock"),
    ].filter(Boolean).join(" · ");
    const findings = byId("findings");
    findings.className = run.findings.length ? "" : "none";
    findings.firstElementChild.textContent =
        run.findings.length ? count(run.findings.length, "finding") : "no findings";
    findings.lastElementChild.append(...run.findings.slice(0, MOST_FINDINGS).map((finding) => {
        const item = document.createElement("li");
        if (finding.t === null) {
            item.textContent = finding.text;
        } else {
            const link = document.createElement("button");
            link.textContent = finding.text;
            link.title = `Show it, at ${timeText(finding.t)}`;
            link.addEventListener("click", () => lead(finding));
            item.append(link);
        }
        return item;
    }));
    if (run.findings.length > MOST_FINDINGS) {
        const more = document.createElement("li");
        more.textContent = `and ${run.findings.length - MOST_FINDINGS} more`;
        findings.lastElementChild.append(more);
    }
}

function onWheel(event) {
    if (!event.ctrlKey && !event.shiftKey) return;
    event.preventDefault();
    const delta = event.deltaY || event.deltaX;
    if (event.shiftKey) {
        view.move(Math.sign(delta) * 0.1);
        return;
    }
    const over = lanes.plot.over.getBoundingClientRect();
    const part = Math.min(1, Math.max(0, (event.clientX - over.left) / over.width));
    view.zoom(delta > 0 ? 1.25 : 0.8, view.from + part * (view.to - view.from));
}

function onKey(event) {
    if (event.target.closest("input, select, #rows") || event.ctrlKey || event.altKey || event.metaKey) return;
    const actions = {
        w: () => view.zoom(0.7), "+": () => view.zoom(0.7),
        s: () => view.zoom(1.4), "-": () => view.zoom(1.4),
        a: () => view.move(-0.2), ArrowLeft: () => view.move(-0.2),
        d: () => view.move(0.2), ArrowRight: () => view.move(0.2),
        0: () => view.fit(), Escape: () => view.mark(null),
    };
    const action = actions[event.key];
    if (!action) return;
    event.preventDefault();
    action();
}

function connectTools() {
    const onClick = (id, action) => byId(id).addEventListener("click", action);
    onClick("zoom-in", () => view.zoom(0.6));
    onClick("zoom-out", () => view.zoom(1.6));
    onClick("pan-left", () => view.move(-0.3));
    onClick("pan-right", () => view.move(0.3));
    onClick("fit", () => view.fit());
    onClick("fold", () => refold(() => lanes.setFolded(!lanes.isFolded)));
    byId("pick").addEventListener("change", (event) => {
        const who = event.target.value;
        if (who === "*") view.setFilter([]);
        else if (who) view.toggle(who);
    });
    const search = () => view.search(byId("search").value, byId("all").checked);
    byId("search").addEventListener("input", search);
    byId("all").addEventListener("change", search);
    pictures.addEventListener("wheel", onWheel, {passive: false});
    document.addEventListener("keydown", onKey);
    matchMedia("(prefers-color-scheme: dark)").addEventListener("change", () => {
        for (const one of [...charts, lanes]) one.plot.redraw();
    });
    new ResizeObserver(layOut).observe(pictures);
    window.addEventListener("resize", layOut);
}

view.listen((change) => {
    if (change.filter) showFilter();
    if (change.range) showRange();
    if (change.mark || change.filter) log.follow();
    if (change.range || change.filter) log.followRange();
    placeLines();
});
describeRun();
connectTools();
showFilter();
showRange();
log.follow();
log.followRange();
document.body.dataset.ready = "true";
