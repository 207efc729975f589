// The run that the page carries, unpacked: times in seconds, frequencies in MHz, texts in full.

const HELD = 0;
const RELEASED = 1;
const NOBODY = -1;

const FLOOR = 0;
const LIFTED_CEILING = 2;

// The number of elements of the ascending `times` that are at most `t`.
function countUpTo(times, t) {
    let low = 0;
    let high = times.length;
    while (low < high) {
        const middle = (low + high) >> 1;
        if (times[middle] <= t) low = middle + 1;
        else high = middle;
    }
    return low;
}

const NOBODYS = "other:the plug-in";
const SOMEBODYS = "other:a requester that the log does not name";

// Who makes a request, as filters name it: "client:thermal", "command:touch", "other:the start".
function whoOf(request) {
    if (request.command) return `command:${request.command}`;
    if (request.client) return `client:${request.client}`;
    return `other:${request.text}`;
}

function readRun(packed) {
    const texts = packed.texts;
    const seconds = (ticks) => ticks / packed.ticksPerSecond;
    const column = (differences) => {
        let sum = 0;
        return differences.map((difference) => seconds((sum += difference)));
    };
    const rowsOf = (table, make) => {
        const times = column(table.t);
        return table.rows.map((row, index) => make(times[index], row, index));
    };

    const pairs = packed.pairs.map(([text, track = null, side = null, khz = 0]) => ({
        text: texts[text],
        track,
        side,
        mhz: khz / 1000,
        limits: track !== null &&
            (side === FLOOR ? khz > packed.tracks[track].lowKhz : khz < packed.tracks[track].highKhz),
    }));
    const lists = packed.lists.map((list) => list.map((pair) => pairs[pair]));
    const run = {
        title: packed.title,
        source: packed.source,
        device: packed.device,
        scenes: packed.scenes,
        end: seconds(packed.end),
        clock: packed.clock ?? null,
        linesLeftOut: packed.linesLeftOut,
        tracks: packed.tracks.map((track) => readTrack(track, column, seconds(packed.end))),
    };
    run.requests = rowsOf(packed.requests, (t, [text, result, line, client, command], index) => {
        const request = {index, t, line, text: texts[text], result: texts[result],
                         client: texts[client], command: texts[command]};
        request.who = whoOf(request);
        request.isFailed = request.result.startsWith("failed: ");
        return request;
    });
    run.locks = packed.locks.map(([handle, end, how, endRequest, terms, holdings], index) => ({
        index,
        handle,
        end: seconds(end),
        how,
        endRequest,
        terms: terms.map(([since, until, list, request]) => ({
            since: seconds(since),
            until: until < 0 ? null : seconds(until),
            pairs: lists[list],
            request,
        })),
        // Who it belongs to, from when on.
        holdings: (holdings ?? [[terms[0][0], terms[0][3]]]).map(([since, request]) => ({
            since: seconds(since),
            request: Math.max(request, NOBODY),
            who: request >= 0 ? run.requests[request].who : request === NOBODY ? NOBODYS : SOMEBODYS,
        })),
    }));
    run.lanes = packed.lanes.map(({name, who, spans}) => ({
        name,
        who,
        spans: spans.map((span) => {
            const [index, since, end] = Array.isArray(span) ? span : [span, null, null];
            const lock = run.locks[index];
            return {
                lock,
                since: since === null ? lock.terms[0].since : seconds(since),
                end: end === null ? lock.end : seconds(end),
            };
        }),
    }));
    for (const lane of run.lanes) lane.since = lane.spans.map((span) => span.since);
    run.findings = packed.findings.map(([text, t, request, lock]) => ({
        // Without the folder of the file that it names.
        text: text.replace(/^\S*\/(?=[^/\s]+:\d+: )/, ""),
        request, t: t < 0 ? null : seconds(t), lock: lock < 0 ? null : run.locks[lock],
    }));
    run.controls = packed.controls.map(([since, type, level, isInForce, boosts], index, all) => ({
        since: seconds(since),
        end: index + 1 < all.length ? seconds(all[index + 1][0]) : run.end,
        type, level, isInForce: isInForce === 1, boosts: boosts === 1,
    }));
    run.refusals = packed.refusals.map(([t, returned, list, request]) => ({
        t: seconds(t), returned, pairs: lists[list], request,
    }));
    run.breakthroughs = packed.breakthroughs.map(([since, end, ms, request]) => ({
        since: seconds(since), end: seconds(end), ms, request,
    }));
    run.writes = rowsOf(packed.writes, (t, [node, before, after, unit, error, request]) => ({
        t, error, request, node: texts[node], before: texts[before], after: texts[after],
        unit: texts[unit],
    }));
    run.lines = rowsOf(packed.lines, (t, [priority, tag, text, request, isUsual]) => ({
        t, priority, request, tag: texts[tag], text: texts[text], isUsual: isUsual === 1,
    }));
    return run;
}

// One time column for the three series of a track, each value held until the next one.
function readTrack(packed, column, end) {
    const series = ["ceiling", "current", "floor"].map((name) => ({
        t: column(packed[name].t),
        mhz: packed[name].khz.map((khz) => khz / 1000),
    }));
    const all = new Set([0, end]);
    for (const one of series) for (const t of one.t) all.add(t);
    const times = [...all].sort((a, b) => a - b);
    const held = series.map((one) => {
        let next = 0;
        let value = null;
        return times.map((t) => {
            while (next < one.t.length && one.t[next] <= t) value = one.mhz[next++];
            return value;
        });
    });
    return {
        name: packed.name,
        label: packed.label,
        isBus: packed.isBus === 1,
        lowMhz: packed.lowKhz / 1000,
        highMhz: packed.highKhz / 1000,
        times,
        ceiling: held[0],
        current: held[1],
        floor: held[2],
    };
}
