// Colours, light and dark, for what is drawn. The rest of the page has its own in the style sheet.

const LIGHT = {
    background: "#ffffff",
    text: "#1c2024",
    faint: "#6b7280",
    grid: "rgba(100, 110, 120, 0.22)",
    label: "#eef0f3",
    stripe: "#d5d9df",
    overlay: "rgba(120, 130, 145, 0.28)",
    graph: "rgba(60, 110, 180, 0.35)",
    knob: "#5b6675",
    arrow: "rgba(40, 60, 90, 0.45)",
    chosen: "#c2410c",
    found: "#7c3aed",
    slices: {
        handler: "#9cc5f0",
        send: "#f5cf86",
        "reply wait": "#dcdfe4",
        wait: "#f2a9a0",
        task: "#a6dcb4",
        timer: "#cdbdf2",
        scope: "#b5dfe3",
    },
    instants: {
        "time-out": "#d92d20",
        overrun: "#d92d20",
        refused: "#dc6803",
        unanswered: "#d92d20",
        "stopped elsewhere": "#dc6803",
        mark: "#175cd3",
        log: "#7a5af8",
        other: "#c3c9d1",
    },
    counters: [
        "#1570ef",
        "#dc6803",
        "#079455",
        "#7a5af8",
        "#d92d20",
        "#0e7490",
        "#a15c07",
        "#c11574",
    ],
};

const DARK = {
    background: "#14171b",
    text: "#e8eaed",
    faint: "#9aa3af",
    grid: "rgba(150, 160, 175, 0.18)",
    label: "#20252b",
    stripe: "#333a43",
    overlay: "rgba(0, 0, 0, 0.5)",
    graph: "rgba(110, 165, 235, 0.4)",
    knob: "#9aa3af",
    arrow: "rgba(200, 215, 235, 0.5)",
    chosen: "#fb923c",
    found: "#c4b5fd",
    slices: {
        handler: "#2c5d92",
        send: "#7a5a16",
        "reply wait": "#3a424d",
        wait: "#8a3b33",
        task: "#2c6b43",
        timer: "#55418f",
        scope: "#24666c",
    },
    instants: {
        "time-out": "#f97066",
        overrun: "#f97066",
        refused: "#fdb022",
        unanswered: "#f97066",
        "stopped elsewhere": "#fdb022",
        mark: "#84caff",
        log: "#bdb4fe",
        other: "#4a525d",
    },
    counters: [
        "#53b1fd",
        "#fdb022",
        "#47cd89",
        "#a48afb",
        "#f97066",
        "#67e3f9",
        "#fac515",
        "#fa7cc0",
    ],
};

const isDark = matchMedia("(prefers-color-scheme: dark)");

export function theme() {
    return isDark.matches ? DARK : LIGHT;
}

export function onThemeChange(call) {
    isDark.addEventListener("change", call);
}
