// The findings, first of all: each leads to its place in the chart.

import { formatMs } from "./model.js";

const LISTED_AT_ONCE = 5;

export function listFindings(place, model, show, revealTime) {
    for (const section of model.data.findings)
        place.append(makeSection(section, model, show, revealTime));
    if (!model.data.findings.some((section) => !section.isUsual)) {
        const good = document.createElement("p");
        good.textContent = "No time-outs, overruns, unanswered requests, circles or the like.";
        place.prepend(good);
    }
}

function makeSection({ heading, count, items, isUsual }, model, show, revealTime) {
    const section = document.createElement("section");
    section.className = isUsual ? "usual" : "unusual";
    const title = document.createElement("h3");
    title.textContent = heading;
    if (!isUsual)
        title.append(
            Object.assign(document.createElement("span"), {
                className: "count",
                textContent: count,
            }),
        );
    const list = document.createElement("ul");
    for (const item of items) list.append(makeEntry(item, model, show, revealTime));
    section.append(title, list);
    const hidden = [...list.children].slice(LISTED_AT_ONCE);
    if (hidden.length > 0) {
        hidden.forEach((entry) => {
            entry.hidden = true;
        });
        const more = Object.assign(document.createElement("button"), {
            className: "more",
            textContent: `${hidden.length} more`,
        });
        more.onclick = () => {
            hidden.forEach((entry) => {
                entry.hidden = false;
            });
            more.remove();
        };
        section.append(more);
    }
    return section;
}

function makeEntry(item, model, show, revealTime) {
    const entry = document.createElement("li");
    const hasPlace = item.item !== undefined || item.ns !== undefined || item.track !== undefined;
    const text = document.createElement(hasPlace ? "a" : "span");
    text.textContent = item.text.replaceAll(" -> ", " → ");
    if (item.item !== undefined) {
        text.href = `#item-${item.item}`;
        text.onclick = (event) => {
            event.preventDefault();
            show(item.item);
        };
    } else if (hasPlace) {
        text.href = "#chart";
        text.onclick = (event) => {
            event.preventDefault();
            revealTime(item);
        };
    }
    const least = item.isLeast ? "at least " : "";
    const facts = [
        item.durationNs === undefined ? "" : least + formatMs(item.durationNs / 1e6),
        item.thread ?? "",
        item.at === undefined ? "" : `at ${item.at}`,
    ].filter((fact) => fact !== "");
    entry.append(
        text,
        Object.assign(document.createElement("small"), { textContent: facts.join(" · ") }),
    );
    return entry;
}
