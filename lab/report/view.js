// What is shown: range of time, filter, marked time, search. Kept in the URL's hash, so that a link
// leads to the same picture.

// How much is shown around a time that somebody is led to.
const LEAD_SECONDS = 20;

// #from=1.5&to=3&who=client:thermal&who=command:touch&at=2.1&find=text&all=1
class View {
    constructor(run) {
        this.run = run;
        this.length = Math.max(run.end, 0.001);
        this.listeners = [];
        this.readHash();
        window.addEventListener("hashchange", () => {
            if (location.hash === this.written) return;
            this.readHash();
            this.tell({range: true, filter: true, search: true, mark: true});
        });
    }

    // `listener` gets {range, filter, search, mark}: true for what has changed.
    listen(listener) {
        this.listeners.push(listener);
    }

    tell(change) {
        this.writeHash();
        for (const listener of this.listeners) listener(change);
    }

    readHash() {
        const hash = new URLSearchParams(location.hash.slice(1));
        const number = (name) => {
            const value = parseFloat(hash.get(name));
            return Number.isFinite(value) ? value : null;
        };
        [this.from, this.to] = this.within(number("from") ?? 0, number("to") ?? this.length);
        this.who = new Set(hash.getAll("who"));
        this.at = number("at");
        this.find = hash.get("find") ?? "";
        this.all = hash.get("all") === "1";
    }

    writeHash() {
        const hash = new URLSearchParams();
        const round = (t) => String(Math.round(t * 1e6) / 1e6);
        if (!this.isWhole()) {
            hash.set("from", round(this.from));
            hash.set("to", round(this.to));
        }
        for (const who of this.who) hash.append("who", who);
        if (this.at !== null) hash.set("at", round(this.at));
        if (this.find) hash.set("find", this.find);
        if (this.all) hash.set("all", "1");
        const text = hash.toString().replaceAll("%3A", ":");
        this.written = text ? `#${text}` : "";
        history.replaceState(null, "", this.written || location.pathname + location.search);
    }

    isWhole() {
        return this.from <= 0 && this.to >= this.length;
    }

    // The range, moved and cut so that it lies within the run and is not too short to be drawn.
    within(from, to) {
        const shortest = Math.min(this.length, 0.002);
        const span = Math.min(Math.max(to - from, shortest), this.length);
        const start = Math.min(Math.max(from, 0), this.length - span);
        return [start, start + span];
    }

    show(from, to) {
        [this.from, this.to] = this.within(from, to);
        this.tell({range: true});
    }

    zoom(factor, around = (this.from + this.to) / 2) {
        this.show(around - (around - this.from) * factor, around + (this.to - around) * factor);
    }

    move(part) {
        const by = (this.to - this.from) * part;
        this.show(this.from + by, this.to + by);
    }

    fit() {
        this.show(0, this.length);
    }

    // Marks a time, and moves there when it is out of sight.
    mark(t) {
        this.at = t;
        const isHidden = t !== null && (t < this.from || t > this.to);
        if (isHidden) {
            const half = (this.to - this.from) / 2;
            [this.from, this.to] = this.within(t - half, t + half);
        }
        this.tell({mark: true, range: isHidden});
    }

    // Leads to a time: marks it, in the middle of a range in which single requests can be told apart.
    lead(t) {
        const half = Math.min(this.to - this.from, LEAD_SECONDS) / 2;
        [this.from, this.to] = this.within(t - half, t + half);
        this.at = t;
        this.tell({mark: true, range: true});
    }

    setFilter(who) {
        this.who = new Set(who);
        this.tell({filter: true});
    }

    // Neither filter nor search.
    clear() {
        this.who = new Set();
        this.find = "";
        this.tell({filter: true, search: true});
    }

    toggle(who) {
        const next = new Set(this.who);
        if (!next.delete(who)) next.add(who);
        this.setFilter(next);
    }

    search(find, all) {
        this.find = find;
        this.all = all;
        this.tell({search: true});
    }

    // True when the filter lets `who` through; what belongs to nobody, null, passes with no filter only.
    allows(who) {
        return this.who.size === 0 || (who !== null && this.who.has(who));
    }

    allowsRequest(index) {
        return this.allows(index === NOBODY ? null : this.run.requests[index].who);
    }
}
