// The keyboard: everything that the mouse can do in the chart.

const HELP = [
    ["← →", "pan; with Shift a whole screen"],
    ["↑ ↓", "scroll the tracks"],
    ["+ −", "zoom; so does the wheel with Ctrl"],
    ["0", "all of it"],
    ["f", "the chosen slice, as wide as the screen"],
    ["n, p", "the next, the previous slice of the row"],
    ["Enter", "along the arrow: from a send to its handler, and back"],
    ["b", "back to what was chosen before"],
    ["/", "search; Enter goes to the next that was found"],
    ["Escape", "choose nothing"],
    ["?", "this list"],
];

export function addKeys({ chart, model, search, show, goBack, follow }) {
    const ifChosen = (act) => () => {
        if (chart.selected !== null) act(chart.selected);
    };
    const goTo = (item) => {
        if (item !== null) show(item);
    };
    const acts = {
        ArrowLeft: (event) => chart.pan(event.shiftKey ? -1 : -0.15),
        ArrowRight: (event) => chart.pan(event.shiftKey ? 1 : 0.15),
        ArrowUp: () => chart.scroll(-60),
        ArrowDown: () => chart.scroll(60),
        "+": () => chart.zoom(0.6),
        "=": () => chart.zoom(0.6),
        "-": () => chart.zoom(1 / 0.6),
        0: () => chart.showAll(),
        f: ifChosen((item) => chart.reveal(item)),
        n: ifChosen((item) => goTo(model.neighbour(item, 1))),
        p: ifChosen((item) => goTo(model.neighbour(item, -1))),
        Enter: ifChosen(follow),
        b: goBack,
        "/": () => search.input.focus(),
        Escape: () => show(null),
        "?": () => document.getElementById("help").showModal(),
    };
    document.addEventListener("keydown", (event) => {
        const { target } = event;
        if (event.ctrlKey || event.metaKey || event.altKey || target instanceof HTMLInputElement)
            return;
        if (document.getElementById("help").open) return;
        // A link or a button that has the focus is pressed.
        if (
            event.key === "Enter" &&
            (target instanceof HTMLAnchorElement || target instanceof HTMLButtonElement)
        )
            return;
        const act = acts[event.key];
        if (act === undefined) return;
        event.preventDefault();
        act(event);
    });
}

export function addHelp() {
    const dialog = document.getElementById("help");
    const list = dialog.querySelector("dl");
    for (const [key, what] of HELP) {
        list.append(
            Object.assign(document.createElement("dt"), { textContent: key }),
            Object.assign(document.createElement("dd"), { textContent: what }),
        );
    }
    document.getElementById("show-help").onclick = () => dialog.showModal();
    dialog.addEventListener("click", (event) => {
        if (event.target === dialog) dialog.close();
    });
}
