// The search: what it finds is listed, and marked in the chart.

import { formatMs } from "./model.js";

const LISTED = 100;

export class Search {
    constructor(place, model) {
        this.model = model;
        this.input = place.querySelector("input");
        this.count = place.querySelector(".count");
        this.list = place.querySelector("ul");
        this.found = [];
        this.at = -1;
        this.onGo = () => {};
        this.onFound = () => {};
        let timer = 0;
        this.input.addEventListener("input", () => {
            clearTimeout(timer);
            timer = setTimeout(() => this.look(), 120);
        });
        this.input.addEventListener("keydown", (event) => {
            if (event.key === "Enter") {
                clearTimeout(timer);
                if (this.searched !== this.input.value) this.look();
                this.step(event.shiftKey ? -1 : 1);
            } else if (event.key === "Escape") {
                this.input.value = "";
                this.look();
                this.input.blur();
            }
        });
        place.querySelector(".next").onclick = () => this.step(1);
        place.querySelector(".previous").onclick = () => this.step(-1);
    }

    look() {
        this.searched = this.input.value;
        this.found = this.model.find(this.input.value);
        this.at = -1;
        this.onFound(this.found);
        this.list.replaceChildren(
            ...this.found.slice(0, LISTED).map((item, index) => this.entry(item, index)),
        );
        this.tell();
    }

    step(by) {
        if (this.found.length === 0) return;
        this.at =
            (this.at + by + this.found.length + (this.at === -1 && by < 0 ? 1 : 0)) %
            this.found.length;
        this.go(this.at);
    }

    go(index) {
        this.at = index;
        this.tell();
        for (const entry of this.list.children)
            entry.classList.toggle("current", Number(entry.dataset.index) === index);
        this.onGo(this.found[index]);
    }

    tell() {
        const { length } = this.found;
        if (this.input.value.trim() === "") this.count.textContent = "";
        else if (length === 0) this.count.textContent = "nothing found";
        else
            this.count.textContent =
                this.at === -1 ? `${length} found` : `${this.at + 1} of ${length}`;
    }

    entry(item, index) {
        const { model } = this;
        const entry = document.createElement("li");
        entry.dataset.index = index;
        const link = Object.assign(document.createElement("a"), {
            href: `#item-${item}`,
            textContent: model.name(item),
        });
        link.onclick = (event) => {
            event.preventDefault();
            this.go(index);
        };
        const took = model.isSlice(item) ? `${formatMs(model.duration(item))} · ` : "";
        entry.append(
            link,
            Object.assign(document.createElement("small"), {
                textContent: `${took}${model.place(item)}`,
            }),
        );
        return entry;
    }
}
