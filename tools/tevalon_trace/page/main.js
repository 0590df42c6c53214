// The page: reads its data, and puts chart, lists and details together.

import { Chart } from "./chart.js";
import { Details } from "./details.js";
import { listFindings } from "./findings.js";
import { Model } from "./model.js";
import { Search } from "./search.js";
import { addHelp, addKeys } from "./keys.js";

async function readData() {
    const packed = atob(document.getElementById("data").textContent.trim());
    const bytes = Uint8Array.from(packed, (each) => each.charCodeAt(0));
    const unpacked = new Blob([bytes]).stream().pipeThrough(new DecompressionStream("deflate"));
    return new Response(unpacked).json();
}

function describe(data) {
    document.getElementById("facts").textContent = data.facts.join("\n");
    document.getElementById("origin").textContent = `0 ms is ${data.start}`;
    const notes = document.getElementById("notes");
    for (const note of data.notes)
        notes.append(Object.assign(document.createElement("p"), { textContent: note }));
    notes.hidden = data.notes.length === 0;
}

function start(data) {
    describe(data);
    const model = new Model(data);
    const chart = new Chart(document.getElementById("chart"), model);
    const details = new Details(document.getElementById("details"), model);
    const search = new Search(document.getElementById("search"), model);
    const back = [];

    // Every way to an item ends here: its details, and the part of the chart that it is in.
    const show = (item, { move = true, remember = true } = {}) => {
        if (remember && chart.selected !== null && chart.selected !== item)
            back.push(chart.selected);
        chart.select(item);
        if (move && item !== null) chart.reveal(item);
        details.show(item);
        // On a narrow screen the lists stand above it.
        if (move && item !== null) chart.place.scrollIntoView({ block: "nearest" });
        if (item !== null) history.replaceState(null, "", `#item-${item}`);
    };
    const goBack = () => {
        if (back.length > 0) show(back.pop(), { remember: false });
    };
    // Along an arrow: from what sends to what handles it, and from there back.
    const follow = (item) => {
        const other = model.otherEnd(item);
        if (other !== null) show(other);
    };

    chart.onPick = (item) => {
        const isAgain = item !== null && item === chart.selected;
        show(item, { move: false });
        if (item !== null && (isAgain || model.isSend(item))) follow(item);
    };
    details.onGo = show;
    search.onGo = show;
    search.onFound = (items) => chart.mark(items);
    listFindings(document.getElementById("findings"), model, show, (item) =>
        chart.revealTime(item),
    );
    document.getElementById("zoom-in").onclick = () => chart.zoom(0.5);
    document.getElementById("zoom-out").onclick = () => chart.zoom(2);
    document.getElementById("zoom-all").onclick = () => chart.showAll();
    document.getElementById("back").onclick = goBack;
    addKeys({ chart, model, search, show, goBack, follow });
    addHelp();

    const goToHash = () => {
        const found = /^#item-(\d+)$/.exec(location.hash);
        if (found !== null && Number(found[1]) < model.itemCount) show(Number(found[1]));
    };
    addEventListener("hashchange", goToHash);
    goToHash();
    // For who looks at the page by a program.
    window.tevalonTrace = { model, chart, show };
    document.documentElement.dataset.state = "ready";
}

readData()
    .then(start)
    .catch((error) => {
        document.documentElement.dataset.state = "failed";
        document.getElementById("origin").textContent = `The page cannot be shown: ${error}`;
        throw error;
    });
