// The lanes under the charts: requests, findings, control state, limit breakthroughs, and lanes for
// each holder of locks. What is not in sight is not drawn: there may be as many as a run has holders.

const LANE_HEIGHT = 21;
const HIT_PIXELS = 4;
const LEAST_LABEL_PIXELS = 40;
const FONT = "system-ui, sans-serif";

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

// As much of `words` as `room` has, with an ellipsis where it is cut: a number stays whole or goes.
//   widthOf   how wide a text is
function fitted(words, room, widthOf) {
    if (widthOf(words) <= room) return words;
    let fits = 0;
    for (let over = words.length; over - fits > 1;) {
        const middle = (fits + over) >> 1;
        if (widthOf(`${words.slice(0, middle)}…`) <= room) fits = middle;
        else over = middle;
    }
    let cut = words.slice(0, fits);
    if (/[\da-fx.]/i.test(words[fits])) cut = cut.replace(/(0x[\da-f]*|\d[\d.]*)$/i, "");
    cut = cut.trimEnd();
    return cut ? `${cut}…` : "";
}

const ruler = document.createElement("canvas").getContext("2d");

class Lanes {
    // onHover(what, t, left, top): `what` is {lock}, {request}, {breakthrough}, {control}, {finding}
    // or null.
    constructor(run, view, box, host, onHover, onPick) {
        this.run = run;
        this.view = view;
        this.box = box;
        this.host = host;
        this.all = [];       // the rows that the filter leaves
        this.rows = [];      // those of them that are shown
        this.isFolded = true;
        this.names = new Map();  // row -> its name
        const holder = document.createElement("div");
        holder.id = "lanes-plot";
        host.append(holder);
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
        this.plot = new uPlot(options, [[0, view.length], [null, null]], holder);
        this.plot.over.addEventListener("click", () => {
            const {left, top} = this.plot.cursor;
            const t = this.plot.posToVal(left, "x");
            onPick(this.hit(t, top), t);
        });
        this.box.addEventListener("scroll", () => {
            this.nameRows();
            this.plot.redraw(false);
        });
    }

    // The rows that the filter leaves.
    filter() {
        const {run, view} = this;
        this.all = [];
        const add = (kind, name, items, who = null) => {
            const since = items.map((item) => item.since ?? item.t);
            this.all.push({kind, name, items, since, who, index: this.all.length});
        };
        add("request", "requests", run.requests.filter((request) => view.allows(request.who)));
        const findings = run.findings.filter((one) => one.t !== null).sort((a, b) => a.t - b.t);
        if (findings.length > 0) add("finding", "findings", findings);
        if (run.controls.length > 0) {
            add("level", "thermal level", run.controls);
            add("control", "control type", run.controls);
        }
        const breakthroughs = run.breakthroughs.filter((one) => view.allowsRequest(one.request));
        if (breakthroughs.length > 0) add("breakthrough", "breakthrough", breakthroughs);
        for (const lane of run.lanes) {
            if (!view.allows(lane.who)) continue;
            this.all.push({kind: "lock", name: lane.name, items: lane.spans, since: lane.since, who: lane.who,
                           index: this.all.length});
        }
        this.fold();
    }

    // Leaves out the lanes that have nothing in the range of time; what was at the top stays there.
    fold() {
        const {from, to} = this.view;
        const top = this.rows[Math.floor(this.box.scrollTop / LANE_HEIGHT)];
        const hasSome = (row) => {
            const before = countUpTo(row.since, to);
            if (before === 0) return false;
            // Spans of a lane do not overlap: the last one ends last.
            return (row.items[before - 1].end ?? row.since[before - 1]) >= from;
        };
        this.rows = this.isFolded ? this.all.filter((row) => row.kind === "request" || hasSome(row)) : this.all;
        this.host.style.height = `${this.height()}px`;
        if (top && this.box.scrollTop > 0) {
            const place = this.rows.findIndex((row) => row.index >= top.index);
            if (place >= 0) this.box.scrollTop = place * LANE_HEIGHT + (this.box.scrollTop % LANE_HEIGHT);
        }
        for (const name of this.names.values()) name.remove();
        this.names.clear();
    }

    folded() {
        return this.all.length - this.rows.length;
    }

    setFolded(isFolded) {
        this.isFolded = isFolded;
        this.fold();
    }

    // The rows in sight, [first, last).
    inSight() {
        const first = Math.floor(this.box.scrollTop / LANE_HEIGHT);
        const count = Math.ceil(this.plot.height / LANE_HEIGHT) + 1;
        return [first, Math.min(this.rows.length, first + count)];
    }

    nameRows() {
        const [first, last] = this.inSight();
        const seen = new Set(this.rows.slice(first, last));
        for (const [row, name] of this.names) {
            if (seen.has(row)) continue;
            name.remove();
            this.names.delete(row);
        }
        for (let place = first; place < last; ++place) {
            const row = this.rows[place];
            if (this.names.has(row)) continue;
            const name = this.nameOf(row);
            name.style.top = `${place * LANE_HEIGHT}px`;
            this.host.append(name);
            this.names.set(row, name);
        }
    }

    nameOf(row) {
        const name = document.createElement(row.who ? "button" : "div");
        name.className = row.who ? "lane-name" : `lane-name plain ${row.kind}`;
        name.style.width = `${this.gutter - 4}px`;
        name.style.height = name.style.lineHeight = `${LANE_HEIGHT}px`;
        ruler.font = `${this.view.who.has(row.who) ? 600 : 400} ${this.gutter < 100 ? 11 : 12}px ${FONT}`;
        const room = this.gutter - (this.gutter < 100 ? 14 : 26);
        name.textContent = fitted(row.name, room, (text) => ruler.measureText(text).width);
        name.setAttribute("aria-label", row.name);
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
        return name;
    }

    height() {
        return this.rows.length * LANE_HEIGHT + 4;
    }

    // `width`: of the lanes without their scroll bar.
    resize(width) {
        this.gutter = gutterOf(width);
        this.plot.setSize({width, height: Math.max(LANE_HEIGHT, Math.min(this.height(), this.box.clientHeight))});
        for (const name of this.names.values()) name.remove();
        this.names.clear();
        this.nameRows();
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
        const row = this.rows[Math.floor((top + this.box.scrollTop) / LANE_HEIGHT)];
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
        if (row.kind === "lock") return {lock: best.lock};
        return row.kind === "level" ? {control: best} : {[row.kind]: best};
    }

    draw(plot) {
        const context = plot.ctx;
        const scale = devicePixelRatio || 1;
        context.save();
        context.textAlign = "left";
        context.textBaseline = "middle";
        context.font = `${11 * scale}px ${FONT}`;
        context.beginPath();
        context.rect(plot.bbox.left, plot.bbox.top, plot.bbox.width, plot.bbox.height);
        context.clip();
        this.readColours();
        const [first, last] = this.inSight();
        for (let place = first; place < last; ++place) {
            const top = plot.bbox.top + (place * LANE_HEIGHT - this.box.scrollTop) * scale;
            context.fillStyle = this.colours.grid;
            context.fillRect(plot.bbox.left, top + LANE_HEIGHT * scale - 1, plot.bbox.width, 1);
            const box = {top: top + 2 * scale, height: (LANE_HEIGHT - 5) * scale, scale};
            const row = this.rows[place];
            if (row.kind === "request" || row.kind === "finding") this.drawTicks(plot, row, box);
            else this.drawBars(plot, row, box);
        }
        context.restore();
    }

    readColours() {
        this.colours = {text: colour("text"), grid: colour("grid"), error: colour("error")};
        const strength = Number(colour("lock-strength"));
        this.styles = {};
        for (const kind of ["floor", "ceiling", "both", "other"]) {
            const line = colour(kind);
            this.styles[kind] = {line, fill: faded(line, strength), thin: faded(line, 0.6)};
        }
        // The hotter, the stronger.
        this.levelStyles = [0, 1, 2, 3, 4].map((level) => {
            const line = colour(level > 0 ? "ceiling" : "other");
            const fill = faded(line, level > 0 ? 0.1 + 0.12 * level : 0.08);
            return {line, fill, thin: fill};
        });
    }

    // A tick for each, with its words where there is room up to the next one.
    drawTicks(plot, row, box) {
        const context = plot.ctx;
        const {from, to} = this.view;
        const {text, error} = this.colours;
        const xOf = (i) => (i < row.items.length && row.since[i] <= to
            ? Math.round(plot.valToPos(row.since[i], "x", true)) : plot.bbox.left + plot.bbox.width);
        let drawn = -Infinity;
        let isRed = false;
        for (let i = this.firstFrom(row, from); i < row.items.length && row.since[i] <= to; ++i) {
            const x = xOf(i);
            const isWrong = row.kind === "finding" || row.items[i].isFailed;
            // What is red is not hidden by what stands beside it.
            if (x - drawn < 2 * box.scale && (isRed || !isWrong)) continue;
            drawn = x;
            isRed = isWrong;
            context.fillStyle = isWrong ? error : text;
            context.fillRect(x - box.scale * 0.75, box.top, (isWrong ? 3 : 1.5) * box.scale, box.height);
            if (row.since[i] >= from) this.drawWords(context, row.items[i].text, x, xOf(i + 1), box, context.fillStyle);
        }
    }

    // How a bar of a row looks and what it says.
    barOf(row, item, term) {
        const {styles, levelStyles} = this;
        switch (row.kind) {
            case "lock":
                return [styles[kindOf(term.pairs)], barText(this.run, term.pairs)];
            case "level":
                return [levelStyles[Math.max(0, item.level)], levelText(item)];
            case "control":
                return [styles[item.isInForce ? "ceiling" : "other"], controlText(item)];
            default:
                return [styles.both, `${item.ms} ms`];
        }
    }

    // Bars in time's order. Those that share a column of pixels are drawn as one, the stronger the more
    // of its time they take.
    drawBars(plot, row, box) {
        const {from, to} = this.view;
        const columnSeconds = ((to - from) * box.scale) / plot.bbox.width;
        let column = null;
        const endColumn = () => {
            if (!column) return;
            plot.ctx.globalAlpha = 0.4 + 0.5 * Math.min(1, column.seconds / columnSeconds);
            plot.ctx.fillStyle = column.style.line;
            plot.ctx.fillRect(column.x, box.top, box.scale, box.height);
            plot.ctx.globalAlpha = 1;
            column = null;
        };
        for (let i = this.firstFrom(row, from); i < row.items.length && row.since[i] <= to; ++i) {
            const item = row.items[i];
            const terms = item.lock ? item.lock.terms : [item];
            for (let at = 0; at < terms.length; ++at) {
                const since = Math.max(terms[at].since, item.since);
                const end = Math.min(at + 1 < terms.length ? terms[at + 1].since : item.end, item.end);
                if (end < from || since > to || end < since) continue;
                const x0 = Math.round(plot.valToPos(Math.max(since, from), "x", true));
                const x1 = Math.round(plot.valToPos(Math.min(end, to), "x", true));
                if (column && x1 <= column.x) {
                    column.seconds += end - since;
                    continue;
                }
                endColumn();
                const [style, words] = this.barOf(row, item, terms[at]);
                if (x1 - x0 <= box.scale) column = {x: x0, seconds: end - since, style};
                else this.drawBar(plot.ctx, x0, x1, box, style, words);
            }
        }
        endColumn();
    }

    drawBar(context, x0, x1, box, style, words) {
        const isThin = x1 - x0 < 4 * box.scale;
        context.fillStyle = isThin ? style.thin : style.fill;
        context.fillRect(x0, box.top, x1 - x0, box.height);
        if (isThin) return;
        context.fillStyle = style.line;
        context.fillRect(x0, box.top, 2 * box.scale, box.height);
        context.fillRect(x0, box.top + box.height - box.scale, x1 - x0, box.scale);
        this.drawWords(context, words, x0, x1, box, this.colours.text);
    }

    drawWords(context, words, x0, x1, box, text) {
        if (x1 - x0 < LEAST_LABEL_PIXELS * box.scale) return;
        context.fillStyle = text;
        const shown = fitted(words, x1 - x0 - 9 * box.scale, (part) => context.measureText(part).width);
        context.fillText(shown, x0 + 6 * box.scale, box.top + box.height / 2);
    }
}
