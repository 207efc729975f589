// Puts the page together: charts, lanes, log, and the tools above them.

const run = readRun(JSON.parse(document.getElementById("run").textContent));
runLength = run.end;
runClock = run.clock;

const MOST_FINDINGS = 500;
const MOST_OFFERED = 50;
const LEAST_CHART_HEIGHT = 47;

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
        view.clear();
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
    const term = what?.lock && stepAt(what.lock.terms, t);
    const holding = what?.lock && stepAt(what.lock.holdings, t);
    const isFound = what && log.selectEntry(({source}) =>
        what.lock ? source.lock === what.lock &&
            (holding.since > term.since ? source.holding === holding : source.term === term) :
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
// what few lanes leave; a bus needs less of it.
function layOut() {
    const isNarrow = matchMedia("(max-width: 820px)").matches;
    const width = Math.max(200, lanesBox.clientWidth);
    const shareOf = (chart) => (chart.track.isBus ? 0.62 : 1);
    const shares = charts.reduce((sum, chart) => sum + shareOf(chart), 0);
    const room = isNarrow ? 110 * shares :
        Math.max(pictures.clientHeight * 0.54, pictures.clientHeight - lanes.height() - byId("fold").offsetHeight - 10);
    const height = Math.min(190, Math.max(62, (room - 26) / Math.max(1, shares)));
    for (const chart of charts) {
        chart.resize(width, Math.max(LEAST_CHART_HEIGHT, Math.floor(height * shareOf(chart))));
    }
    lanes.resize(width);
    log.resize();
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

function showLog() {
    log.filter();
    if (byId("search").value !== view.find) byId("search").value = view.find;
    byId("all").checked = view.all;
}

function showFilter() {
    refold(() => lanes.filter());
    const chipOf = (text, title, action) => {
        const chip = document.createElement("button");
        chip.textContent = text;
        chip.title = title;
        chip.addEventListener("click", action);
        return chip;
    };
    const chips = [...view.who].map((who) =>
        chipOf(`${who.replace(":", " ")} ✕`, "Take it out of the filter", () => view.toggle(who)));
    if (chips.length > 1) chips.push(chipOf("everything", "No filter", () => view.setFilter([])));
    byId("chips").replaceChildren(...chips);
    byId("pick").placeholder = view.who.size > 0 ? "add a client or command" : "everything";
}

// Everyone who asks for something, with the number of requests, the busiest first.
const askers = (() => {
    const counts = new Map();
    for (const {who} of run.requests) counts.set(who, (counts.get(who) ?? 0) + 1);
    for (const {who} of run.lanes) if (!counts.has(who)) counts.set(who, 0);
    return [...counts].filter(([who]) => !who.startsWith("other:")).sort((a, b) => b[1] - a[1])
        .map(([who, count]) => ({who, text: who.replace(":", " "), count}));
})();

// Offers those whose names have what is typed.
function offerAskers() {
    const typed = byId("pick").value.toLowerCase();
    const offered = [];
    for (const asker of askers) {
        if (offered.length === MOST_OFFERED) break;
        if (asker.text.toLowerCase().includes(typed) && !view.who.has(asker.who)) offered.push(asker);
    }
    byId("askers").replaceChildren(...offered.map(({text, count}) =>
        Object.assign(document.createElement("option"), {value: text, label: `${text} (${count})`})));
}

function pickAsker() {
    const typed = byId("pick").value.trim().toLowerCase();
    const found = askers.find(({text}) => text.toLowerCase() === typed) ??
        askers.find(({who}) => nameOf(who).toLowerCase() === typed);
    if (!found) return;
    byId("pick").value = "";
    if (!view.who.has(found.who)) view.toggle(found.who);
}

function describeRun() {
    byId("title").textContent = run.title;
    const count = (number, noun) => `${number} ${noun}${number === 1 ? "" : "s"}`;
    // The start is none that anybody made.
    const made = run.requests.filter((request) => request.line || request.client || request.command);
    byId("facts").textContent = [
        run.device, run.source, run.scenes && `scenes ${run.scenes}`, sinceStartText(run.end),
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
    byId("pick").addEventListener("focus", offerAskers);
    byId("pick").addEventListener("input", offerAskers);
    byId("pick").addEventListener("change", pickAsker);
    const search = () => view.search(byId("search").value, byId("all").checked);
    byId("search").addEventListener("input", search);
    byId("all").addEventListener("change", search);
    pictures.addEventListener("wheel", onWheel, {passive: false});
    document.addEventListener("keydown", onKey);
    matchMedia("(prefers-color-scheme: dark)").addEventListener("change", () => {
        for (const one of [...charts, lanes]) one.plot.redraw();
    });
    new ResizeObserver(layOut).observe(pictures);
    new ResizeObserver(() => lanes.resize(Math.max(200, lanesBox.clientWidth))).observe(lanesBox);
    window.addEventListener("resize", layOut);
}

view.listen((change) => {
    if (change.filter) showFilter();
    if (change.filter || change.search) showLog();
    if (change.range) showRange();
    if (change.mark || change.filter || change.search) log.follow();
    if (change.range || change.filter || change.search) log.followRange();
    placeLines();
});
describeRun();
connectTools();
showFilter();
showLog();
showRange();
log.follow();
log.followRange();
document.body.dataset.ready = "true";
