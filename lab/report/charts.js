// The frequency charts: ceiling, floor and current frequency of one cluster or the GPU each.

// In the order in which they are drawn: an idle cluster runs at its floor, and shows on top of it.
const SERIES = ["ceiling", "floor", "current"];

// Below this height a chart's name has less beside it.
const LOW_CHART = 90;

function colour(name) {
    return getComputedStyle(document.documentElement).getPropertyValue(`--${name}`).trim();
}

// `text` of the form #rrggbb with an opacity.
function faded(text, strength) {
    const part = (at) => parseInt(text.slice(at, at + 2), 16);
    return `rgba(${part(1)}, ${part(3)}, ${part(5)}, ${strength})`;
}

// How wide the names and numbers left of the plots are.
function gutterOf(width) {
    return width < 600 ? 92 : 168;
}

// Steps of the time axis that read well in seconds, minutes and hours.
const TIME_STEPS = [1e-6, 1e-5, 1e-4, 0.001, 0.002, 0.005, 0.01, 0.02, 0.05, 0.1, 0.2, 0.5, 1, 2, 5, 10, 20, 30,
                    60, 120, 300, 600, 1200, 1800, 3600, 7200, 14400, 28800, 86400, 172800, 432000, 864000];

// True when the changes in sight are too many to be told apart.
function isDense(plot) {
    const {min, max} = plot.scales.x;
    const times = plot.data[0];
    return countUpTo(times, max) - countUpTo(times, min) > plot.over.clientWidth;
}

// Draws steps. However many changes fall on one column of pixels, it gets at most four points, so
// that a day is drawn as quickly as a second.
//   base   what the area is filled to: "top", "bottom" or null
function stepPaths(base) {
    return (plot, seriesIndex) => {
        const times = plot.data[0];
        const values = plot.data[seriesIndex];
        const {min, max} = plot.scales.x;
        const stroke = new Path2D();
        const xOf = (t) => plot.valToPos(t, "x", true);
        const yOf = (value) => plot.valToPos(value, "y", true);
        let next = Math.max(0, countUpTo(times, min) - 1);
        while (next < times.length && values[next] === null) ++next;
        if (next >= times.length || times[next] > max) return null;
        const startX = xOf(Math.max(times[next], min));
        let y = yOf(values[next]);
        stroke.moveTo(startX, y);
        for (++next; next < times.length && times[next] <= max;) {
            const x = Math.round(xOf(times[next]));
            let low = y;
            let high = y;
            let last = y;
            for (; next < times.length && times[next] <= max && Math.round(xOf(times[next])) === x; ++next) {
                last = yOf(values[next]);
                low = Math.min(low, last);
                high = Math.max(high, last);
            }
            if (low === y && high === y) continue;
            stroke.lineTo(x, y);
            if (low < Math.min(y, last)) stroke.lineTo(x, low);
            if (high > Math.max(y, last)) stroke.lineTo(x, high);
            stroke.lineTo(x, last);
            y = last;
        }
        const endX = xOf(Math.min(max, times[times.length - 1]));
        stroke.lineTo(endX, y);
        let fill = null;
        if (base) {
            const edge = base === "top" ? plot.bbox.top : plot.bbox.top + plot.bbox.height;
            fill = new Path2D(stroke);
            fill.lineTo(endX, edge);
            fill.lineTo(startX, edge);
            fill.closePath();
        }
        return {stroke, fill, clip: null, band: null, gaps: null, flags: 1};
    };
}

// What all plots of the page share: zoom by dragging, crosshair, the time axis.
//   onHover(t, event)   the pointer is over time `t`; null when it has left
function plotOptions(view, width, height, axes, onHover) {
    return {
        width,
        height,
        padding: [8, 24, 0, 0],
        legend: {show: false},
        cursor: {
            x: false,
            y: false,
            points: {show: false},
            drag: {x: true, y: false, setScale: false, dist: 4},
            bind: {dblclick: () => () => view.fit()},
        },
        scales: {x: {time: false, range: (plot, min, max) => [min, max]}},
        axes,
        hooks: {
            setSelect: [(plot) => {
                const {left, width: wide} = plot.select;
                if (wide < 4) return;
                const from = plot.posToVal(left, "x");
                const to = plot.posToVal(left + wide, "x");
                plot.setSelect({left: 0, width: 0, top: 0, height: 0}, false);
                view.show(from, to);
            }],
            setCursor: [(plot) => {
                const {left, top} = plot.cursor;
                onHover(left < 0 ? null : plot.posToVal(left, "x"), left, top);
            }],
        },
    };
}

function timeAxis(isShown) {
    return {
        show: true,
        size: isShown ? 26 : 0,
        stroke: () => colour("dim"),
        font: "12px system-ui, sans-serif",
        grid: {stroke: () => colour("grid"), width: 1},
        ticks: {show: isShown, stroke: () => colour("grid"), size: 4},
        space: runClock ? 110 : 80,
        incrs: TIME_STEPS,
        // On a clock full seconds and minutes are its own.
        splits: (plot, axis, low, high, step) => {
            const shift = runClock ? (runClock.originUs / 1e6) % 86400 : 0;
            const splits = [];
            for (let n = Math.ceil((low + shift) / step - 1e-9); n * step <= high + shift + step * 1e-9; ++n) {
                splits.push(n * step - shift);
            }
            return splits;
        },
        values: (plot, splits) => {
            if (!isShown) return splits.map(() => "");
            const step = splits.length > 1 ? splits[1] - splits[0] : 1;
            const digits = Math.min(6, Math.max(0, Math.ceil(-Math.log10(step) - 1e-9)));
            return splits.map((t) => timeText(t, digits));
        },
    };
}

class TrackChart {
    constructor(run, index, view, host, isLast, onHover) {
        this.track = run.tracks[index];
        this.isLast = isLast;
        this.host = document.createElement("div");
        this.host.className = this.track.isBus ? "chart bus" : "chart";
        this.host.setAttribute("role", "img");
        this.host.setAttribute("aria-label", this.summary());
        host.append(this.host);
        this.addName();
        const axes = [timeAxis(isLast), {
            size: (plot) => gutterOf(plot.width),
            stroke: () => colour("dim"),
            font: "12px system-ui, sans-serif",
            grid: {stroke: () => colour("grid"), width: 1},
            ticks: {show: false},
            space: (plot, axis, min, max, height) => (height < LOW_CHART ? 15 : 24),
            values: (plot, splits) => splits.map((mhz, at) => (at === splits.length - 1 ? `${mhz} MHz` : String(mhz))),
        }];
        const options = plotOptions(view, 600, 100, axes, (t, left, top) => onHover(index, t, left, top));
        options.padding[2] = isLast ? 0 : 6;
        options.scales.y = {range: [0, this.track.highMhz * 1.06]};
        options.series = [{}, ...SERIES.map((name) => this.series(name))];
        this.plot = new uPlot(options, [this.track.times, ...SERIES.map((name) => this.track[name])], this.host);
    }

    series(name) {
        const base = {ceiling: "top", current: null, floor: "bottom"}[name];
        return {
            label: name,
            // Where lines run together, they let see what lies behind, and dots would only add noise.
            stroke: (plot) => {
                if (!isDense(plot)) return colour(name);
                return name === "current" ? "transparent" : faded(colour(name), 0.45);
            },
            fill: base ? () => faded(colour(name), colour("fill-strength")) : undefined,
            width: 2,
            dash: name === "current" ? [2, 4] : undefined,
            points: {show: false},
            paths: stepPaths(base),
        };
    }

    addName() {
        const name = document.createElement("div");
        name.className = "name";
        const add = (kind, text, type) => {
            const part = document.createElement(kind);
            part.textContent = text;
            if (type) part.className = type;
            name.append(part);
            return part;
        };
        add("b", this.track.name);
        add("small", this.track.label.replace(/^[^,]*,? ?/, ""));
        this.values = SERIES.map((series) => add("span", "", series));
        this.host.append(name);
    }

    // Puts the values at time `t` beside the chart.
    read(t) {
        const at = t === null ? -1 : Math.max(0, countUpTo(this.track.times, t) - 1);
        SERIES.forEach((name, index) => {
            const mhz = at < 0 ? null : this.track[name][at];
            this.values[index].textContent = mhz === null ? "" : String(Math.round(mhz * 10) / 10);
        });
    }

    summary() {
        const ends = (values) => {
            let low = Infinity;
            let high = -Infinity;
            for (const value of values) {
                if (value === null) continue;
                low = Math.min(low, value);
                high = Math.max(high, value);
            }
            return low === high ? mhzText(low) : `${mhzText(low)} to ${mhzText(high)}`;
        };
        return `${this.track.label}: floor ${ends(this.track.floor)}, ceiling ${ends(this.track.ceiling)}`;
    }

    resize(width, height) {
        this.host.classList.toggle("low", height < LOW_CHART);
        const whole = height + (this.isLast ? 26 : 0);
        // The plot takes it at the end of this turn; what stands below must know it now.
        this.plot.root.style.height = `${whole}px`;
        this.plot.setSize({width, height: whole});
    }

    show(from, to) {
        this.plot.setScale("x", {min: from, max: to});
    }

    // Where time `t` is, in pixels from the left of the chart.
    leftOf(t) {
        return this.plot.valToPos(t, "x") + this.plot.over.offsetLeft;
    }
}
