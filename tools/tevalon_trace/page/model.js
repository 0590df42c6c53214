// What the page shows, as the rest asks for it. An item is a number: first the slices, then the
// instants. Times are milliseconds since the beginning of the window.

const NS_PER_MS = 1e6;
const MAX_FOUND = 5000;

export class Model {
    constructor(data) {
        this.data = data;
        this.tracks = data.tracks;
        this.sliceCount = data.slices.begin.length;
        this.itemCount = this.sliceCount + data.instants.ns.length;
        this.durationMs = (data.endNs - data.startNs) / NS_PER_MS;
        this.placeTracks();
        this.connect();
        this.texts = null; // For the search; made when it is used first.
    }

    // A row of its own for the name and the instants of each track, above those of its slices.
    placeTracks() {
        let row = 0;
        for (const track of this.tracks) {
            track.top = row;
            row += 1 + track.rows;
        }
        this.rowCount = row;
        this.instantsOf = this.tracks.map(() => []);
        this.data.instants.track.forEach((track, index) => {
            this.instantsOf[track].push(this.sliceCount + index);
        });
        for (const items of this.instantsOf) items.sort((a, b) => this.begin(a) - this.begin(b));
    }

    connect() {
        this.arrows = [];
        this.arrowsFrom = new Map();
        this.arrowsTo = new Map();
        const { tail, tailNs, head, headNs } = this.data.arrows;
        tail.forEach((from, index) => {
            const arrow = {
                from,
                to: head[index],
                fromMs: tailNs[index] / NS_PER_MS,
                toMs: headNs[index] / NS_PER_MS,
            };
            this.arrows.push(arrow);
            append(this.arrowsFrom, arrow.from, arrow);
            append(this.arrowsTo, arrow.to, arrow);
        });
    }

    isSlice(item) {
        return item < this.sliceCount;
    }
    isSend(item) {
        return this.isSlice(item) && this.category(item) === "send";
    }
    column(item, name) {
        return this.isSlice(item)
            ? this.data.slices[name][item]
            : this.data.instants[name][item - this.sliceCount];
    }
    text(item, name) {
        return this.data.names[this.column(item, name)];
    }
    track(item) {
        return this.tracks[this.column(item, "track")];
    }
    row(item) {
        return this.track(item).top + (this.isSlice(item) ? 1 + this.column(item, "row") : 0);
    }
    begin(item) {
        return (
            (this.isSlice(item)
                ? this.data.slices.begin[item]
                : this.data.instants.ns[item - this.sliceCount]) / NS_PER_MS
        );
    }
    duration(item) {
        return this.isSlice(item) ? this.data.slices.duration[item] / NS_PER_MS : 0;
    }
    category(item) {
        return this.text(item, "category");
    }
    name(item) {
        return this.text(item, "name");
    }
    module(item) {
        return this.text(item, "module");
    }
    detail(item) {
        return this.text(item, "detail");
    }
    end(item) {
        return this.isSlice(item) ? this.text(item, "end") : "";
    }
    place(item, ms = this.begin(item)) {
        return `${this.track(item).name}, at ${ms.toFixed(3)} ms`;
    }
    // As --text shows it.
    clock(ms) {
        const ns = BigInt(Math.round(ms * NS_PER_MS)) + BigInt(Math.round(this.data.startNs));
        return `${ns / 1000000000n}.${String(ns % 1000000000n).padStart(9, "0")}`;
    }

    from(item) {
        return this.arrowsFrom.get(item) ?? [];
    }
    to(item) {
        return this.arrowsTo.get(item) ?? [];
    }
    // Where an arrow leads to from this item; or, where none does, where one comes from.
    otherEnd(item) {
        if (this.isSend(item) || this.to(item).length === 0) {
            return this.from(item)[0]?.to ?? this.to(item)[0]?.from ?? null;
        }
        return this.to(item)[0].from;
    }

    // The outermost slice of its thread that an instant lies in.
    around(instant) {
        const ms = this.begin(instant);
        for (let item = 0; item < this.sliceCount && this.begin(item) <= ms; ++item) {
            if (
                this.track(item) === this.track(instant) &&
                this.column(item, "row") === 0 &&
                ms <= this.begin(item) + this.duration(item)
            )
                return item;
        }
        return null;
    }

    // The next or previous slice of the same row, or instant of the same track.
    neighbour(item, step) {
        const items = this.isSlice(item)
            ? this.slicesOfRow(this.row(item))
            : this.instantsOf[this.column(item, "track")];
        return items[items.indexOf(item) + step] ?? null;
    }
    slicesOfRow(row) {
        const items = [];
        for (let item = 0; item < this.sliceCount; ++item)
            if (this.row(item) === row) items.push(item);
        return items;
    }

    // The items that have all words of the query. module:, event: and thread: in front of a word
    // say where it has to be; otherwise it may be anywhere in what is known of the item.
    find(query) {
        const words = query
            .toLowerCase()
            .split(/\s+/)
            .filter((word) => word !== "");
        if (words.length === 0) return [];
        this.texts ??= this.makeTexts();
        const tests = words.map((word) => this.test(word));
        const found = [];
        for (let item = 0; item < this.itemCount && found.length < MAX_FOUND; ++item) {
            if (tests.every((test) => test(item))) found.push(item);
        }
        return found.sort((a, b) => this.begin(a) - this.begin(b));
    }
    test(word) {
        const { names, tracks } = this.texts;
        const [, field, rest] = /^(module|event|thread):(.*)$/.exec(word) ?? [null, "", word];
        const within = (name) => (item) => names[this.column(item, name)].includes(rest);
        if (field === "module") return within("module");
        if (field === "event")
            return (item) => within("name")(item) && this.detail(item).startsWith("event ");
        const ofThread = (item) => tracks[this.column(item, "track")].includes(rest);
        if (field === "thread") return ofThread;
        const places = ["name", "category", "module", "detail"].map(within);
        return (item) => places.some((place) => place(item)) || ofThread(item);
    }
    makeTexts() {
        return {
            names: this.data.names.map((name) => name.toLowerCase()),
            tracks: this.tracks.map((track) => `${track.name} ${track.ids}`.toLowerCase()),
        };
    }
}

function append(map, key, value) {
    if (map.has(key)) map.get(key).push(value);
    else map.set(key, [value]);
}

export function formatMs(ms) {
    if (ms === 0) return "0 ms";
    const size = Math.abs(ms);
    if (size < 0.001) return `${(ms * 1e6).toFixed(0)} ns`;
    if (size < 1) return `${(ms * 1e3).toFixed(size < 0.1 ? 2 : 1)} µs`;
    if (size < 1000) return `${ms.toFixed(size < 100 ? 2 : 1)} ms`;
    return `${(ms / 1000).toFixed(3)} s`;
}
