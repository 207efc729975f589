// The lanes under the charts: requests, limit breakthroughs, and a lane for each holder of locks.

const LANE_HEIGHT = 21;
const HIT_PIXELS = 4;

// What kind of lock it is, for its colour: what it limits, not what it holds at its default.
function kindOf(pairs) {
    const floor = pairs.some((pair) => pair.side === FLOOR && pair.limits);
    const ceiling = pairs.some((pair) => pair.side !== FLOOR && pair.limits);
    if (floor && ceiling) return "both";
    return floor ? "floor" : ceiling ? "ceiling" : "other";
}

// "big ≥ 2112, gpu ≥ 492": what a lock's bar says where it has room. MHz are cut as in the lock.
function barText(run, pairs) {
    const signs = ["≥", "≤", "⇑"];
    const parts = pairs.filter((pair) => pair.track !== null)
        .map((pair) => `${run.tracks[pair.track].name} ${signs[pair.side]} ${Math.floor(pair.mhz)}`);
    if (parts.length > 0) return parts.join(", ");
    return pairs.length > 0 ? pairs[0].text : "";
}

class Lanes {
    // onHover(what, t, left, top): `what` is {lock}, {request}, {breakthrough} or null.
    constructor(run, view, host, onHover, onPick) {
        this.run = run;
        this.view = view;
        this.host = host;
        this.rows = [];
        this.names = [];
        const axes = [timeAxis(false), {
            size: (plot) => gutterOf(plot.width),
            grid: {show: false},
            ticks: {show: false},
            splits: () => [],
            values: () => [],
        }];
        const options = plotOptions(view, 600, 100, axes, (t, left, top) => {
            onHover(t === null ? null : this.hit(t, top), t, left, top);
        });
        options.padding = [0, 24, 0, 0];
        options.scales.y = {range: [0, 1]};
        options.series = [{}, {show: false}];
        options.hooks.draw = [(plot) => this.draw(plot)];
        this.plot = new uPlot(options, [[0, view.length], [null, null]], host);
        this.plot.over.addEventListener("click", () => {
            const {left, top} = this.plot.cursor;
            const t = this.plot.posToVal(left, "x");
            onPick(this.hit(t, top), t);
        });
    }

    // The rows that the filter leaves, with their names.
    filter() {
        const {run, view} = this;
        const requests = run.requests.filter((request) => view.allows(request.index));
        this.rows = [{kind: "requests", name: "requests", items: requests, since: requests.map((r) => r.t)}];
        const breakthroughs = run.breakthroughs.filter((one) => view.allows(one.request));
        if (breakthroughs.length > 0) {
            this.rows.push({kind: "breakthrough", name: "breakthrough", items: breakthroughs,
                            since: breakthroughs.map((one) => one.since)});
        }
        for (const lane of run.lanes) {
            const locks = lane.locks.map((index) => run.locks[index]).filter((lock) => view.allowsLock(lock));
            if (locks.length === 0) continue;
            const first = locks[0].terms[0].request;
            this.rows.push({kind: "locks", name: lane.name, items: locks,
                            since: locks.map((lock) => lock.terms[0].since),
                            who: first === NOBODY ? null : run.requests[first].who});
        }
        this.nameRows();
    }

    nameRows() {
        for (const name of this.names) name.remove();
        this.names = this.rows.map((row, index) => {
            const name = document.createElement(row.who ? "button" : "div");
            name.className = row.who ? "lane-name" : "lane-name plain";
            name.textContent = row.name;
            name.style.top = `${index * LANE_HEIGHT}px`;
            name.style.height = name.style.lineHeight = `${LANE_HEIGHT}px`;
            const count = row.items.length;
            if (row.who) {
                const isChosen = this.view.who.has(row.who);
                name.dataset.who = row.who;
                name.setAttribute("aria-pressed", String(isChosen));
                name.title = `${row.name}: ${count} lock${count === 1 ? "" : "s"}. ` +
                    (isChosen ? "Click to take it out of the filter" : "Click to filter");
                name.addEventListener("click", () => this.view.toggle(row.who));
            } else {
                name.title = `${row.name}: ${count}`;
            }
            this.host.append(name);
            return name;
        });
    }

    height() {
        return this.rows.length * LANE_HEIGHT + 4;
    }

    resize(width) {
        this.plot.setSize({width, height: this.height()});
        for (const name of this.names) name.style.width = `${gutterOf(width) - 4}px`;
    }

    show(from, to) {
        this.plot.setScale("x", {min: from, max: to});
    }

    // The first item of a row that may be seen from time `t` on.
    firstFrom(row, t) {
        const before = countUpTo(row.since, t);
        return Math.max(0, before - 1);
    }

    hit(t, top) {
        const row = this.rows[Math.floor(top / LANE_HEIGHT)];
        if (!row) return null;
        const margin = (HIT_PIXELS * (this.view.to - this.view.from)) / this.plot.over.clientWidth;
        let best = null;
        let bestDistance = Infinity;
        for (let i = this.firstFrom(row, t - margin); i < row.items.length && row.since[i] <= t + margin; ++i) {
            const item = row.items[i];
            const end = item.end ?? row.since[i];
            const distance = t < row.since[i] ? row.since[i] - t : Math.max(0, t - end);
            if (distance <= margin && distance <= bestDistance) {
                best = item;
                bestDistance = distance;
            }
        }
        if (!best) return null;
        if (row.kind === "locks") return {lock: best};
        return row.kind === "requests" ? {request: best} : {breakthrough: best};
    }

    draw(plot) {
        const context = plot.ctx;
        const scale = devicePixelRatio || 1;
        context.save();
        context.textAlign = "left";
        context.textBaseline = "middle";
        context.font = `${11 * scale}px system-ui, sans-serif`;
        context.beginPath();
        context.rect(plot.bbox.left, plot.bbox.top, plot.bbox.width, plot.bbox.height);
        context.clip();
        this.rows.forEach((row, index) => {
            const top = plot.bbox.top + index * LANE_HEIGHT * scale;
            context.fillStyle = colour("grid");
            context.fillRect(plot.bbox.left, top + LANE_HEIGHT * scale - 1, plot.bbox.width, 1);
            const box = {top: top + 2 * scale, height: (LANE_HEIGHT - 5) * scale, scale};
            if (row.kind === "requests") this.drawRequests(plot, row, box);
            else this.drawBars(plot, row, box);
        });
        context.restore();
    }

    // A tick for each, with its words where there is room up to the next one.
    drawRequests(plot, row, box) {
        const context = plot.ctx;
        const text = colour("text");
        const {from, to} = this.view;
        const xOf = (i) => (i < row.items.length && row.since[i] <= to
            ? Math.round(plot.valToPos(row.since[i], "x", true)) : plot.bbox.left + plot.bbox.width);
        let drawn = -Infinity;
        for (let i = this.firstFrom(row, from); i < row.items.length && row.since[i] <= to; ++i) {
            const x = xOf(i);
            if (x - drawn < 2 * box.scale) continue;
            drawn = x;
            context.fillStyle = text;
            context.fillRect(x - box.scale * 0.75, box.top, 1.5 * box.scale, box.height);
            if (row.since[i] >= from) this.drawWords(context, row.items[i].text, x, xOf(i + 1), box, text);
        }
    }

    // Bars in time's order; those that share a pixel with the one before are not drawn again.
    drawBars(plot, row, box) {
        const context = plot.ctx;
        const {from, to} = this.view;
        const styles = {};
        for (const kind of ["floor", "ceiling", "both", "other"]) {
            const line = colour(kind);
            styles[kind] = {line, fill: faded(line, colour("lock-strength")), thin: faded(line, 0.6)};
        }
        const text = colour("text");
        let drawn = -Infinity;
        for (let i = this.firstFrom(row, from); i < row.items.length && row.since[i] <= to; ++i) {
            const item = row.items[i];
            const terms = item.terms ?? [{since: item.since, pairs: null}];
            for (let at = 0; at < terms.length; ++at) {
                const end = at + 1 < terms.length ? terms[at + 1].since : item.end;
                if (end < from || terms[at].since > to) continue;
                const x0 = Math.round(plot.valToPos(Math.max(terms[at].since, from), "x", true));
                const x1 = Math.max(x0 + box.scale, Math.round(plot.valToPos(Math.min(end, to), "x", true)));
                if (x1 <= drawn) continue;
                drawn = x1;
                const style = styles[terms[at].pairs ? kindOf(terms[at].pairs) : "both"];
                const isThin = x1 - x0 < 4 * box.scale;
                context.fillStyle = isThin ? style.thin : style.fill;
                context.fillRect(x0, box.top, x1 - x0, box.height);
                if (isThin) continue;
                context.fillStyle = style.line;
                context.fillRect(x0, box.top, 2 * box.scale, box.height);
                context.fillRect(x0, box.top + box.height - box.scale, x1 - x0, box.scale);
                const words = terms[at].pairs ? barText(this.run, terms[at].pairs) : `${item.ms} ms`;
                this.drawWords(context, words, x0, x1, box, text);
            }
        }
    }

    drawWords(context, words, x0, x1, box, text) {
        if (x1 - x0 < 40 * box.scale) return;
        context.save();
        context.beginPath();
        context.rect(x0, box.top, x1 - x0 - 3 * box.scale, box.height);
        context.clip();
        context.fillStyle = text;
        context.fillText(words, x0 + 6 * box.scale, box.top + box.height / 2);
        context.restore();
    }
}
