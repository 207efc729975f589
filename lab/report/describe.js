// Words for people: times, values, and the facts of a lock or a request.

// What the clock of a capture shows at time `t`, "19:42:30.120", with its date where there are
// several; else the time since the start. `digits` behind the point.
function timeText(t, digits = 3) {
    if (!runClock) return sinceStartText(t, digits);
    const us = runClock.originUs + Math.round(t * 1e6);
    const ms = Math.floor(us / 1000);
    const text = new Date(ms).toISOString().replace("T", " ").replace("Z", "");
    const fraction = text.slice(-3) + String(us - ms * 1000).padStart(3, "0");
    return text.slice(runClock.dated ? 5 : 11, 19) + (digits > 0 ? `.${fraction.slice(0, digits)}` : "");
}
let runClock = null;

// "12.345 s" for a short run, "3:25:45.120" for a long one.
function sinceStartText(t, digits = 3) {
    if (runLength < 600) return `${t.toFixed(digits)} s`;
    const whole = Math.floor(t + 1e-9);
    const two = (number) => String(number).padStart(2, "0");
    const fraction = digits > 0 ? (t - whole).toFixed(digits).slice(1) : "";
    return `${Math.floor(whole / 3600)}:${two(Math.floor(whole / 60) % 60)}:${two(whole % 60)}${fraction}`;
}
let runLength = 0;

function spanText(seconds) {
    if (seconds < 0.01) return `${Math.round(seconds * 1e6) / 1000} ms`;
    if (seconds < 1) return `${Math.round(seconds * 1000)} ms`;
    if (seconds < 600) return `${Math.round(seconds * 1000) / 1000} s`;
    return `${Math.floor(seconds / 60)} min ${Math.round(seconds % 60)} s`;
}

function mhzText(mhz) {
    return mhz === null || mhz === undefined ? "unknown" : `${Math.round(mhz * 10) / 10} MHz`;
}

function requestText(run, index) {
    if (index === NOBODY) return "no request";
    const request = run.requests[index];
    return request.line ? `${request.text} (line ${request.line})` : request.text;
}

// The name in what filters name: "touch" of "command:touch".
function nameOf(who) {
    return who.replace(/^[a-z]+:/, "");
}

// The last of `steps`, each of which holds from its `since` on, that has begun at `t`.
function stepAt(steps, t) {
    let found = steps[0];
    for (const step of steps) if (step.since <= t) found = step;
    return found;
}

function holderText(lock, t) {
    return nameOf(stepAt(lock.holdings, t).who);
}

function endText(lock) {
    if (lock.how === HELD) return "still held at the end";
    const after = spanText(lock.end - lock.terms[0].since);
    return `${lock.how === RELEASED ? "released" : "ran out"} at ${timeText(lock.end)}, after ${after}`;
}

function controlText(control) {
    const limits = control.isInForce ? "limits in force" : control.type === 0 ? "limits lifted" : "limits nothing yet";
    return `${control.type}: ${limits}${control.boosts ? "" : ", no boosts"}`;
}

function levelText(control) {
    return control.level < 0 ? "released" : `level ${control.level}`;
}

// How long a term would still last at `t`, as asked for, whatever ends it.
function leftText(term, t) {
    if (term.until === null) return "until released";
    const left = Math.max(0, term.until - t);
    return `${spanText(left)} of ${spanText(term.until - term.since)}`;
}

// [label, value] pairs; a label of "" takes the whole width.
function pairFacts(pairs, most) {
    const facts = pairs.slice(0, most).map((pair, index) => [index ? " " : "asks", pair.text]);
    if (pairs.length > most) facts.push(["", `and ${pairs.length - most} more`]);
    return facts;
}

function lockFacts(run, lock, t, most) {
    const term = stepAt(lock.terms, t);
    const holding = stepAt(lock.holdings, t);
    const facts = [
        ["holder", nameOf(holding.who)],
        ["request", requestText(run, holding.request)],
        ["taken", timeText(lock.terms[0].since)],
    ];
    if (term.request !== holding.request) facts.push(["taken by", requestText(run, term.request)]);
    for (const other of lock.holdings) {
        if (other.who === holding.who) continue;
        facts.push([other.since > t ? "later" : "before", `${nameOf(other.who)}, from ${timeText(other.since)}`]);
    }
    if (lock.terms.length > 1) {
        const renewed = lock.terms.indexOf(term);
        facts.push(["renewed", renewed ? `${timeText(term.since)}, ${renewed} of ${lock.terms.length - 1}`
                                       : `${lock.terms.length - 1} times later`]);
    }
    facts.push([`time left`, leftText(term, Math.min(Math.max(t, term.since), lock.end))]);
    facts.push(["ended", endText(lock)]);
    return [...facts, ...pairFacts(term.pairs, most)];
}

function requestFacts(request) {
    const facts = [["time", timeText(request.t)]];
    if (request.client) facts.push(["client", request.client]);
    if (request.command) facts.push(["command", request.command]);
    if (request.line) facts.push(["line", String(request.line)]);
    if (request.result) facts.push(["result", request.result]);
    return facts;
}

// Who asks for what of a track at `t`, the deciding ones first.
function trackFacts(run, index, t, most) {
    const track = run.tracks[index];
    const at = Math.max(0, countUpTo(track.times, t) - 1);
    const facts = [
        ["ceiling", mhzText(track.ceiling[at])],
        ["current", mhzText(track.current[at])],
        ["floor", mhzText(track.floor[at])],
    ];
    const asked = [];
    for (const {lock, who} of locksAt(run, t)) {
        const term = stepAt(lock.terms, t);
        for (const pair of term.pairs) {
            if (pair.track === index) asked.push({lock, term, pair, who});
        }
    }
    const strictness = ({pair}) => (pair.side === FLOOR ? -pair.mhz : pair.mhz);
    const order = ({pair}) => (pair.side === FLOOR ? 1 : pair.side === LIFTED_CEILING ? -1 : 0);
    asked.sort((a, b) => order(a) - order(b) || strictness(a) - strictness(b));
    for (const {lock, term, pair, who} of asked.slice(0, most)) {
        const sign = pair.side === FLOOR ? "≥" : pair.side === LIFTED_CEILING ? "lifts to" : "≤";
        const left = term.until === null ? "until released" : `${spanText(Math.max(0, term.until - t))} left`;
        facts.push([`lock ${lock.handle}`,
                    `${sign} ${mhzText(pair.mhz)}, ${nameOf(who)}, ${left}`]);
    }
    if (asked.length > most) facts.push(["", `and ${asked.length - most} more locks`]);
    return facts;
}

// The locks held at `t`, with whom they belong to then.
function* locksAt(run, t) {
    for (const {who, since, spans} of run.lanes) {
        const before = countUpTo(since, t);
        if (before === 0) continue;
        const {lock, end} = spans[before - 1];
        if (end > t || (end === lock.end && lock.how === HELD)) yield {lock, who};
    }
}

function factList(headline, facts) {
    const box = document.createDocumentFragment();
    const title = document.createElement("p");
    title.className = "headline";
    title.textContent = headline;
    const list = document.createElement("dl");
    list.className = "facts";
    for (const [label, value] of facts) {
        if (label) {
            const term = document.createElement("dt");
            term.textContent = label;
            list.append(term);
        }
        const text = document.createElement("dd");
        if (!label) text.className = "more";
        text.textContent = value;
        list.append(text);
    }
    box.append(title, list);
    return box;
}
