// All that is known of the chosen item, and where its arrows lead.

import { formatMs } from "./model.js";
import { onThemeChange, theme } from "./theme.js";

export class Details {
    constructor(place, model) {
        this.place = place;
        this.model = model;
        this.onGo = () => {};
        this.shown = null;
        this.show(null);
        onThemeChange(() => this.show(this.shown));
    }

    show(item) {
        const { model } = this;
        this.shown = item;
        if (item === null) {
            this.place.replaceChildren(
                paragraph(
                    "Click on a slice or a finding; on a send to get to its handler.",
                    "hint",
                ),
                legend(),
            );
            return;
        }
        const rows = [
            ["kind", model.category(item)],
            ["thread", `${model.track(item).name} (${model.track(item).ids})`],
        ];
        if (model.module(item) !== "") rows.push(["module", model.module(item)]);
        rows.push(
            ["at", `${model.begin(item).toFixed(6)} ms`],
            ["clock", `${model.clock(model.begin(item))} s`],
        );
        if (model.isSlice(item)) rows.push(["took", formatMs(model.duration(item))]);
        rows.push(["record", model.detail(item)]);
        if (model.end(item) !== "") rows.push(["end", model.end(item)]);
        this.place.replaceChildren(
            Object.assign(document.createElement("h3"), { textContent: model.name(item) }),
            table(rows),
            this.links(item),
        );
    }

    links(item) {
        const list = document.createElement("ul");
        const { model } = this;
        if (!model.isSlice(item)) return list;
        const add = (sign, other, ms) => {
            const link = Object.assign(document.createElement("a"), {
                href: `#item-${other}`,
                textContent: `${sign} ${model.name(other)}, ${model.place(other, ms)}`,
            });
            link.onclick = (event) => {
                event.preventDefault();
                this.onGo(other);
            };
            const entry = document.createElement("li");
            entry.append(link);
            list.append(entry);
        };
        for (const arrow of model.to(item)) add("← from", arrow.from, arrow.fromMs);
        for (const arrow of model.from(item)) add("→ to", arrow.to, arrow.toMs);
        return list;
    }
}

// What the colours mean.
function legend() {
    const place = Object.assign(document.createElement("p"), { className: "legend" });
    const { slices, instants } = theme();
    const shown = [
        ...Object.entries(slices),
        ...["time-out", "refused", "mark", "log"].map((category) => [category, instants[category]]),
    ];
    for (const [category, colour] of shown) {
        const sample = document.createElement("i");
        sample.style.background = colour;
        const entry = document.createElement("span");
        entry.append(
            sample,
            category === "time-out"
                ? "time-out, overrun, unanswered"
                : category === "refused"
                  ? "refused, stopped elsewhere"
                  : category,
        );
        place.append(entry);
    }
    return place;
}

function paragraph(text, className) {
    return Object.assign(document.createElement("p"), { textContent: text, className });
}

function table(rows) {
    const list = document.createElement("dl");
    for (const [name, value] of rows) {
        list.append(
            Object.assign(document.createElement("dt"), { textContent: name }),
            Object.assign(document.createElement("dd"), { textContent: value }),
        );
    }
    return list;
}
