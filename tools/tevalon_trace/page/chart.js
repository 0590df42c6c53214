// The chart: tracks, overview, counters and time, with its tooltip; zoom and pan by mouse, by touch
// and from outside.

import { FlameChartContainer, TimeframeSelectorPlugin, TimeGridPlugin } from "flame-chart-js";

import { CountersPlugin } from "./counters_plugin.js";
import { formatMs } from "./model.js";
import { onThemeChange, theme } from "./theme.js";
import { addTouch } from "./touch.js";
import { TracksPlugin } from "./tracks_plugin.js";

const FONT = "12px system-ui, sans-serif";

const COUNTERS = { height: 44 };

export class Chart {
    constructor(place, model) {
        this.place = place;
        this.model = model;
        this.canvas = place.querySelector("canvas");
        this.tooltip = place.querySelector(".tooltip");
        this.onPick = () => {};
        this.canvas.width = place.clientWidth;
        this.canvas.height = place.clientHeight;
        this.tracks = new TracksPlugin(model);
        this.tracks.onPick = (item) => this.onPick(item);
        this.tracks.onHover = (item, mouse) => this.showTooltip(item, mouse);
        this.overview = new TimeframeSelectorPlugin({
            timeseries: activity(model),
            settings: settings().frame,
        });
        const plugins = [
            this.overview,
            new TimeGridPlugin({ styles: settings().all.styles.timeGridPlugin }),
            ...countersOf(model),
        ];
        plugins.push(this.tracks);
        this.container = new FlameChartContainer({
            canvas: this.canvas,
            plugins,
            settings: settings().all,
        });
        this.engine = this.container.renderEngine;
        this.listen();
    }

    get selected() {
        return this.tracks.selected;
    }

    listen() {
        new ResizeObserver(() => {
            this.container.resize(this.place.clientWidth, this.place.clientHeight);
        }).observe(this.place);
        onThemeChange(() => this.applyTheme());
        this.canvas.addEventListener("mouseleave", () => this.showTooltip(null));
        // The wheel scrolls the tracks; with Ctrl, as pinching a touch pad comes too, it zooms.
        this.canvas.addEventListener(
            "wheel",
            (event) => {
                if (event.ctrlKey || event.metaKey) {
                    this.zoom(
                        Math.exp(Math.max(-60, Math.min(60, event.deltaY)) / 150),
                        event.offsetX,
                    );
                } else if (event.shiftKey || Math.abs(event.deltaX) > Math.abs(event.deltaY)) {
                    this.pan((event.deltaX || event.deltaY) / this.engine.width);
                } else {
                    this.scroll(event.deltaY);
                }
                event.preventDefault();
                event.stopImmediatePropagation();
            },
            { capture: true, passive: false },
        );
        addTouch(this.canvas, this);
    }

    applyTheme() {
        this.tracks.colors = {};
        this.tracks.userColors = theme().slices;
        this.container.setSettings(settings().all);
        this.overview.setTimeseries(activity(this.model));
        this.container.render();
    }

    // ---- where one looks ----

    view() {
        return {
            from: this.engine.positionX,
            to: this.engine.positionX + this.engine.getRealView(),
        };
    }

    setView(from, to) {
        const { durationMs } = this.model;
        const width = Math.min(Math.max(to - from, 1e-4), durationMs);
        const begin = Math.min(Math.max(0, from), durationMs - width);
        this.engine.setZoom(this.engine.width / width);
        this.engine.setPositionX(begin);
        this.container.render();
    }

    zoom(factor, atPixel = this.engine.width / 2) {
        const { from, to } = this.view();
        const at = from + this.engine.pixelToTime(atPixel);
        this.setView(at - (at - from) * factor, at + (to - at) * factor);
    }

    pan(part) {
        const { from, to } = this.view();
        const delta = part * (to - from);
        this.setView(from + delta, to + delta);
    }

    scroll(pixels) {
        this.tracks.setPositionY(this.tracks.positionY + pixels);
        this.container.render();
    }

    showAll() {
        this.setView(0, this.model.durationMs);
    }

    // Brings an item into sight: a slice with what it is connected with, an instant with what its
    // thread was in the middle of.
    reveal(item) {
        const { model } = this;
        const shown = model.isSlice(item) ? item : (model.around(item) ?? item);
        let from = model.begin(shown);
        let to = from + model.duration(shown);
        if (model.isSlice(item)) {
            for (const arrow of [...model.from(item), ...model.to(item)]) {
                from = Math.min(from, arrow.fromMs);
                to = Math.max(to, arrow.toMs);
            }
        }
        const margin = Math.max(
            (to - from) * 0.3,
            model.isSlice(shown) ? 0.01 : model.durationMs / 8,
        );
        this.setView(from - margin, to + margin);
        this.revealRow(model.row(item));
    }

    revealTime({ ns, durationNs, track }) {
        if (ns !== undefined) {
            const from = ns / 1e6;
            const width = Math.max((durationNs ?? 0) / 1e6, 10);
            this.setView(from - width / 2, from + 1.5 * width);
        }
        if (track !== undefined) this.revealRow(this.model.tracks[track].top);
    }

    revealRow(row) {
        const { tracks } = this;
        const y = tracks.yOfRow(row);
        const { height } = tracks.renderEngine;
        if (y < 0 || y > height - 2 * tracks.rowHeight) {
            tracks.setPositionY(tracks.positionY + y - height / 3);
        }
        this.container.render();
    }

    select(item) {
        this.tracks.selected = item;
        this.container.render();
    }

    mark(items) {
        this.tracks.found = items;
        this.container.render();
    }

    // Where an item is on the page; for who looks at it by a program.
    pointOf(item) {
        const { x, y, w } = this.tracks.rectOf(item);
        const box = this.canvas.getBoundingClientRect();
        const left = Math.max(0, x);
        const right = Math.min(this.engine.width, x + w);
        return {
            x: box.left + (left + right) / 2,
            y: box.top + this.tracks.renderEngine.position + y + this.tracks.rowHeight / 2,
        };
    }

    showTooltip(item, mouse) {
        const { tooltip, model } = this;
        this.canvas.style.cursor = item === null ? "" : "pointer";
        tooltip.hidden = item === null;
        if (item === null) return;
        const lines = [model.detail(item), model.end(item)].filter((line) => line !== "");
        const took = model.isSlice(item) ? `, ${formatMs(model.duration(item))}` : "";
        tooltip.replaceChildren(
            Object.assign(document.createElement("strong"), { textContent: model.name(item) }),
            Object.assign(document.createElement("span"), {
                textContent: `${model.place(item)}${took}`,
            }),
            ...lines.map((line) =>
                Object.assign(document.createElement("span"), { textContent: line }),
            ),
        );
        const left = Math.min(mouse.x + 14, this.place.clientWidth - tooltip.offsetWidth - 4);
        const below = mouse.y + 18;
        const fits = below + tooltip.offsetHeight < this.place.clientHeight;
        tooltip.style.left = `${Math.max(0, left)}px`;
        tooltip.style.top = `${fits ? below : Math.max(0, mouse.y - tooltip.offsetHeight - 8)}px`;
    }
}

// A line of charts for each sort of counters that there is.
function countersOf(model) {
    const plugins = [];
    for (const group of ["memory", "queues", "counters"]) {
        const counters = model.data.counters.filter((counter) => counter.group === group);
        if (counters.length > 0) plugins.push(new CountersPlugin(group, model, counters));
    }
    return plugins;
}

// For the overview: how many threads are at work, in stretches of the window.
function activity(model) {
    const count = 400;
    const width = model.durationMs / count;
    const busy = new Float64Array(count);
    for (let item = 0; item < model.sliceCount; ++item) {
        const category = model.category(item);
        if (model.column(item, "row") !== 0 || category === "reply wait" || category === "wait")
            continue;
        const begin = model.begin(item);
        const end = begin + model.duration(item);
        for (let i = Math.floor(begin / width); i < count && i * width < end; ++i) {
            busy[i] += Math.min(end, (i + 1) * width) - Math.max(begin, i * width);
        }
    }
    const points = [...busy].map((ms, index) => [(index + 0.5) * width, ms / width]);
    const { graph } = theme();
    return [
        {
            name: "threads at work",
            group: "activity",
            min: 0,
            points,
            style: { type: "bar", lineColor: graph, fillColor: graph, lineWidth: 1 },
        },
    ];
}

function settings() {
    const colours = theme();
    const frame = {
        styles: {
            font: FONT,
            fontColor: colours.faint,
            overlayColor: colours.overlay,
            graphStrokeColor: colours.graph,
            graphFillColor: colours.graph,
            flameChartGraphType: "bar",
            bottomLineColor: colours.stripe,
            knobColor: colours.knob,
            knobStrokeColor: colours.background,
            knobSize: 8,
            height: 48,
            backgroundColor: colours.background,
        },
    };
    return {
        frame,
        all: {
            options: { tooltip: undefined, timeUnits: "ms" },
            styles: {
                main: {
                    blockHeight: 18,
                    font: FONT,
                    fontColor: colours.text,
                    backgroundColor: colours.background,
                    tooltipHeaderFontColor: colours.text,
                    tooltipBodyFontColor: colours.text,
                    tooltipBackgroundColor: colours.label,
                    tooltipShadowColor: colours.faint,
                },
                timeGrid: { color: colours.grid },
                timeGridPlugin: { font: FONT, fontColor: colours.faint },
                timeframeSelectorPlugin: frame.styles,
                memory: COUNTERS,
                queues: COUNTERS,
                counters: COUNTERS,
            },
        },
    };
}
