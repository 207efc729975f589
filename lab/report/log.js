// The log beside the charts: everything that happened, in order, a window of it at a time.

const ROW_HEIGHT = 22;
const ROWS_AROUND = 12;
const ROW_FONT = `13px ${FONT}`;
const ANDROID_WARNING = 5;

// Everything as entries of one list. An entry has its time, the request that it belongs to, a sign,
// a text and what it tells when it is looked at.
function makeEntries(run) {
    const entries = [];
    // Within one time: what belongs to no request, then each request before its parts. What ends by
    // itself is still its owner's to the filter, what changes hands both owners'.
    const whoOfRequest = (request) => (request === NOBODY ? null : run.requests[request].who);
    const add = (t, request, kind, sign, source, who = whoOfRequest(request), before = who) => {
        entries.push({t, request, kind, sign, source, who, before, order: entries.length});
    };
    for (const request of run.requests) {
        add(request.t, request.index, request.isFailed ? "request failed" : "request", "", {request});
    }
    for (const line of run.lines) {
        const kind = line.priority < ANDROID_WARNING ? "debug" : line.isUsual ? "usual" : "error";
        add(line.t, line.request, kind, kind === "error" ? "!" : ".", {line});
    }
    for (const write of run.writes) add(write.t, write.request, write.error ? "error" : "node", "=", {write});
    for (const refusal of run.refusals) add(refusal.t, refusal.request, "error", "!", {refusal});
    for (const lock of run.locks) {
        lock.terms.forEach((term, at) => {
            add(term.since, term.request, "taken", at ? "~" : "+", {lock, term}, stepAt(lock.holdings, term.since).who);
        });
        for (let at = 1; at < lock.holdings.length; ++at) {
            const holding = lock.holdings[at];
            const before = lock.holdings[at - 1].who;
            if (holding.who === before) continue;
            add(holding.since, NOBODY, "taken", "»", {lock, holding}, holding.who, before);
        }
        if (lock.how === HELD) continue;
        add(lock.end, lock.endRequest, "ended", "-", {lock}, lock.holdings[lock.holdings.length - 1].who);
    }
    for (const one of run.breakthroughs) {
        add(one.since, one.request, "timer", "@", {breakthrough: one, begins: true});
        add(one.end, NOBODY, "timer", "@", {breakthrough: one}, whoOfRequest(one.request));
    }
    const rank = (entry) => (entry.source.request ? 0 : 1);
    return entries.sort((a, b) => a.t - b.t || a.request - b.request || rank(a) - rank(b) || a.order - b.order);
}

// What an entry says on its row. Made when it is asked for: a long run has more than anyone reads.
function entryText(run, {source}) {
    const {request, line, write, refusal, lock, term, holding, breakthrough, begins} = source;
    if (request) {
        const oneLine = request.result && request.result !== "0" && !request.result.includes("\n");
        return request.text + (oneLine ? ` → ${request.result}` : "");
    }
    if (line) return line.tag ? `${line.tag}: ${line.text}` : line.text;
    if (write) {
        const unit = write.unit ? ` ${write.unit}` : "";
        const what = write.error ? `not written, error ${write.error}` :
            write.before === write.after ? `${write.after}${unit}, as before` :
            `→ ${write.after}${unit}, before ${write.before}`;
        return `${write.node}  ${what}`;
    }
    if (refusal) return `a lock was refused with ${refusal.returned}`;
    if (term) {
        const lasts = term.until === null ? "until released" : `for ${spanText(term.until - term.since)}`;
        const isRenewed = term !== lock.terms[0];
        return `lock ${lock.handle}  ${barText(run, term.pairs)}, ${isRenewed ? "renewed " : ""}${lasts}`;
    }
    if (holding) return `lock ${lock.handle}  goes on for ${nameOf(holding.who)}`;
    if (lock) return `lock ${lock.handle} of ${holderText(lock, lock.end)}  ${lock.how === RELEASED ? "released" : "ran out"}`;
    return begins ? `limit breakthrough for ${breakthrough.ms} ms` : "limit breakthrough over";
}

function priorityText(line) {
    const name = ["", "", "verbose", "debug", "info", "warning", "error", "fatal"][line.priority] ?? line.priority;
    return line.isUsual ? `${name}, but harmless: a tag that holds no lock says so` : String(name);
}

// What an entry tells in full.
function describeEntry(run, entry) {
    const {request, line, write, refusal, lock, term, holding, breakthrough} = entry.source;
    const headline = entryText(run, entry);
    if (request) return factList(request.text, requestFacts(request));
    const by = ["request", requestText(run, entry.request)];
    const at = ["time", timeText(entry.t)];
    if (line) return factList(line.text, [at, ["tag", line.tag], ["priority", priorityText(line)], by]);
    if (write) {
        return factList(`${write.node}, written by the plug-in`,
                        [at, ["before", write.before], ["after", write.after], by]);
    }
    if (refusal) return factList(headline, [at, by, ...pairFacts(refusal.pairs, 40)]);
    if (lock) return factList(`lock ${lock.handle}`, lockFacts(run, lock, (term ?? holding)?.since ?? lock.end, 40));
    return factList(headline, [at, ["request", requestText(run, breakthrough.request)]]);
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
            (view.all || entry.kind !== "debug") && (view.allows(entry.who) || view.allows(entry.before)) &&
            (!word || (entry.folded ??= entryText(this.run, entry).toLowerCase()).includes(word)));
        this.times = Float64Array.from(this.shown, (entry) => entry.t);
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
        const text = entryText(this.run, entry);
        row.className = `row ${entry.kind}${!entry.source.request && entry.request !== NOBODY ? " part" : ""}`;
        row.id = `row-${index}`;
        row.style.top = `${index * ROW_HEIGHT}px`;
        row.setAttribute("role", "option");
        row.setAttribute("aria-selected", String(entry === this.selected));
        row.title = text;
        const add = (kind, type, text) => {
            const part = document.createElement(kind);
            part.className = type;
            part.textContent = text;
            row.append(part);
        };
        const time = timeText(entry.t);
        add("time", "", time);
        add("span", `sign ${entry.kind}`, entry.sign);
        add("span", "text", this.fittedText(entry, text, time));
        row.addEventListener("click", () => this.choose(index));
        this.box.append(row);
        this.drawn.set(index, row);
    }

    // As much of a row's text as stands beside its time.
    fittedText(entry, text, time) {
        const widthOf = (part) => ruler.measureText(part).width;
        ruler.font = ROW_FONT;
        const isPart = !entry.source.request && entry.request !== NOBODY;
        const room = this.box.clientWidth - Math.max(58, widthOf(time)) - (isPart ? 56 : 44);
        if (entry.source.request) ruler.font = `600 ${ROW_FONT}`;
        return fitted(text, room, widthOf);
    }

    resize() {
        if (this.width === this.box.clientWidth) return;
        this.width = this.box.clientWidth;
        this.clear();
        this.draw();
    }

    // Selects an entry and marks its time in the charts.
    choose(index) {
        if (index < 0 || index >= this.shown.length) return;
        this.select(index);
        this.view.mark(this.shown[index].t);
    }

    // Selects the first entry that is it; false when there is none in the list.
    selectEntry(isIt) {
        const index = this.shown.findIndex(isIt);
        if (index >= 0) this.select(index);
        return index >= 0;
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
