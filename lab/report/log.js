// The log beside the charts: everything that happened, in order, a window of it at a time.

const ROW_HEIGHT = 22;
const ROWS_AROUND = 12;
const ANDROID_WARNING = 5;

// Everything as entries of one list. An entry has its time, the request that it belongs to, a sign,
// a text and what it tells when it is looked at.
function makeEntries(run) {
    const entries = [];
    // Within one time: what belongs to no request, then each request before its parts. What ends by
    // itself is still its owner's to the filter.
    const add = (t, request, kind, sign, text, source, owner = request) => {
        entries.push({t, request, kind, sign, text, source, owner, order: entries.length});
    };
    for (const request of run.requests) {
        const oneLine = request.result && request.result !== "0" && !request.result.includes("\n");
        add(request.t, request.index, "request", "", request.text + (oneLine ? ` → ${request.result}` : ""),
            {request});
    }
    for (const line of run.lines) {
        const kind = line.priority >= ANDROID_WARNING ? "error" : "debug";
        const text = line.tag ? `${line.tag}: ${line.text}` : line.text;
        add(line.t, line.request, kind, kind === "error" ? "!" : ".", text, {line});
    }
    for (const write of run.writes) {
        const unit = write.unit ? ` ${write.unit}` : "";
        const what = write.error ? `not written, error ${write.error}` :
            write.before === write.after ? `${write.after}${unit}, as before` :
            `${write.before} → ${write.after}${unit}`;
        add(write.t, write.request, write.error ? "error" : "node", "=", `${write.node}  ${what}`, {write});
    }
    for (const refusal of run.refusals) {
        add(refusal.t, refusal.request, "error", "!", `a lock was refused with ${refusal.returned}`, {refusal});
    }
    for (const lock of run.locks) {
        lock.terms.forEach((term, at) => {
            const lasts = term.until === null ? "until released" : `for ${spanText(term.until - term.since)}`;
            add(term.since, term.request, "taken", at ? "~" : "+",
                `lock ${lock.handle}  ${barText(run, term.pairs)}, ${at ? "renewed " : ""}${lasts}`, {lock, term});
        });
        if (lock.how === HELD) continue;
        add(lock.end, lock.endRequest, "ended", "-",
            `lock ${lock.handle} of ${holderText(run, lock.terms[0].request)}  ` +
                (lock.how === RELEASED ? "released" : "ran out"), {lock}, lock.terms[0].request);
    }
    for (const one of run.breakthroughs) {
        add(one.since, one.request, "timer", "@", `limit breakthrough for ${one.ms} ms`, {breakthrough: one});
        add(one.end, NOBODY, "timer", "@", "limit breakthrough over", {breakthrough: one}, one.request);
    }
    const rank = (entry) => (entry.kind === "request" ? 0 : 1);
    entries.sort((a, b) => a.t - b.t || a.request - b.request || rank(a) - rank(b) || a.order - b.order);
    for (const entry of entries) entry.folded = entry.text.toLowerCase();
    return entries;
}

// What an entry tells in full.
function describeEntry(run, entry) {
    const {request, line, write, refusal, lock, term, breakthrough} = entry.source;
    if (request) return factList(request.text, requestFacts(request));
    const by = ["request", requestText(run, entry.request)];
    const at = ["time", timeText(entry.t)];
    if (line) return factList(line.text, [at, ["tag", line.tag], ["priority", String(line.priority)], by]);
    if (write) {
        return factList(`${write.node}, written by the plug-in`,
                        [at, ["before", write.before], ["after", write.after], by]);
    }
    if (refusal) return factList(entry.text, [at, by, ...pairFacts(refusal.pairs, 40)]);
    if (lock) return factList(`lock ${lock.handle}`, lockFacts(run, lock, term ? term.since : lock.end, 40));
    return factList(entry.text, [at, ["request", requestText(run, breakthrough.request)]]);
}

class Log {
    constructor(run, view) {
        this.run = run;
        this.view = view;
        this.all = makeEntries(run);
        this.shown = [];
        this.times = [];
        this.selected = null;
        this.box = document.getElementById("rows");
        this.space = document.getElementById("rows-space");
        this.detail = document.getElementById("detail");
        this.drawn = new Map();  // index -> row
        this.box.addEventListener("scroll", () => this.draw());
        this.box.addEventListener("keydown", (event) => this.onKey(event));
    }

    filter() {
        const {view} = this;
        const word = view.find.toLowerCase();
        this.shown = this.all.filter((entry) =>
            (view.all || entry.kind !== "debug") && view.allows(entry.owner) &&
            (!word || entry.folded.includes(word)));
        this.times = this.shown.map((entry) => entry.t);
        this.space.style.height = `${this.shown.length * ROW_HEIGHT}px`;
        this.clear();
        this.count();
        this.draw();
    }

    count() {
        const left = this.run.linesLeftOut;
        document.getElementById("count").textContent =
            `${this.shown.length} of ${this.all.length} entries` +
            (left ? `; ${left} log lines are too many for this page` : "");
    }

    clear() {
        for (const row of this.drawn.values()) row.remove();
        this.drawn.clear();
    }

    draw() {
        const first = Math.max(0, Math.floor(this.box.scrollTop / ROW_HEIGHT) - ROWS_AROUND);
        const last = Math.min(this.shown.length,
                              Math.ceil((this.box.scrollTop + this.box.clientHeight) / ROW_HEIGHT) + ROWS_AROUND);
        for (const [index, row] of this.drawn) {
            if (index >= first && index < last) continue;
            row.remove();
            this.drawn.delete(index);
        }
        for (let index = first; index < last; ++index) {
            if (!this.drawn.has(index)) this.addRow(index);
        }
    }

    addRow(index) {
        const entry = this.shown[index];
        const row = document.createElement("div");
        row.className = `row ${entry.kind}${entry.kind !== "request" && entry.request !== NOBODY ? " part" : ""}`;
        row.id = `row-${index}`;
        row.style.top = `${index * ROW_HEIGHT}px`;
        row.setAttribute("role", "option");
        row.setAttribute("aria-selected", String(entry === this.selected));
        row.title = entry.text;
        const add = (kind, type, text) => {
            const part = document.createElement(kind);
            part.className = type;
            part.textContent = text;
            row.append(part);
        };
        add("time", "", timeText(entry.t));
        add("span", `sign ${entry.kind}`, entry.sign);
        add("span", "text", entry.text);
        row.addEventListener("click", () => this.choose(index));
        this.box.append(row);
        this.drawn.set(index, row);
    }

    // Selects an entry and marks its time in the charts.
    choose(index) {
        if (index < 0 || index >= this.shown.length) return;
        this.select(index);
        this.view.mark(this.shown[index].t);
    }

    chooseSource(isIt) {
        const index = this.shown.findIndex((entry) => isIt(entry.source));
        if (index < 0) return false;
        this.choose(index);
        return true;
    }

    // Selects what stands at the marked time, unless the selected entry does.
    follow() {
        const at = this.view.at;
        if (at === null) {
            this.select(-1);
        } else if (!this.selected || Math.abs(this.selected.t - at) > 1e-9) {
            const up = countUpTo(this.times, at + 1e-9) - 1;
            // The first entry of the last time that is not after it: the request before its parts.
            this.select(up < 0 ? (this.shown.length ? 0 : -1) : countUpTo(this.times, this.times[up] - 1e-9));
        }
    }

    // Brings the entries of the charts' range into sight, unless the selected one is in it.
    followRange() {
        const {from, to} = this.view;
        if (this.selected && this.selected.t >= from && this.selected.t <= to) return;
        this.box.scrollTop = countUpTo(this.times, from - 1e-9) * ROW_HEIGHT;
        this.draw();
    }

    select(index) {
        this.selected = index < 0 ? null : this.shown[index];
        for (const [at, row] of this.drawn) row.setAttribute("aria-selected", String(at === index));
        this.detail.replaceChildren();
        this.box.removeAttribute("aria-activedescendant");
        if (!this.selected) return;
        this.detail.append(describeEntry(this.run, this.selected));
        const top = index * ROW_HEIGHT;
        const isSeen = top >= this.box.scrollTop && top + ROW_HEIGHT <= this.box.scrollTop + this.box.clientHeight;
        if (!isSeen) this.box.scrollTop = top - this.box.clientHeight / 3;
        this.draw();
        this.box.setAttribute("aria-activedescendant", `row-${index}`);
    }

    onKey(event) {
        const page = Math.max(1, Math.floor(this.box.clientHeight / ROW_HEIGHT) - 1);
        const by = {ArrowDown: 1, ArrowUp: -1, PageDown: page, PageUp: -page}[event.key];
        if (!by) return;
        event.preventDefault();
        event.stopPropagation();
        const at = this.selected ? this.shown.indexOf(this.selected) : -1;
        this.choose(Math.min(Math.max(at + by, 0), this.shown.length - 1));
    }
}
