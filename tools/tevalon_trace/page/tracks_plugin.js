// All tracks in one plug-in of the chart: the library draws the slices of all rows, joined where
// they are narrower than a pixel; ours are rows for several threads, names, instants and arrows.

import { FlameChartPlugin } from "flame-chart-js";

import { theme } from "./theme.js";

const MAX_ARROWS = 400; // More would be a carpet; those of the chosen slice are always drawn.
const NEAR = 6; // Pixels that an instant may be missed by.

// Those of a higher rank are drawn above the others, and met first.
const RANKS = { other: 0, log: 1, mark: 2 };

export class TracksPlugin extends FlameChartPlugin {
    constructor(model) {
        super({ data: [], colors: theme().slices, name: "tracks" });
        this.model = model;
        this.selected = null;
        this.found = [];
        this.hoveredInstant = null;
        this.onPick = () => {};
        this.onHover = () => {};
        this.parseData();
    }

    init(renderEngine, interactionsEngine) {
        super.init(renderEngine, interactionsEngine);
        interactionsEngine.on("move", () => this.handleMove());
        interactionsEngine.on("click", () => this.handleClick());
    }

    // In place of the library's, which takes the rows from how slices nest.
    parseData() {
        const { model } = this;
        this.flatTree = [];
        if (model === undefined) return;
        for (let item = 0; item < model.sliceCount; ++item) {
            const start = model.begin(item);
            const duration = model.duration(item);
            const source = {
                name: model.name(item),
                start,
                duration,
                type: model.category(item),
                item,
            };
            this.flatTree.push({
                source,
                end: start + duration,
                parent: null,
                level: model.row(item),
                index: item,
            });
        }
        // By kind before time: neighbours in this order are joined where they are narrow, and are
        // drawn as one. Slices of a row never overlap.
        this.flatTree.sort(
            (a, b) =>
                a.level - b.level ||
                compare(a.source.type, b.source.type) ||
                a.source.start - b.source.start,
        );
        this.calcMinMax();
    }

    // However short, it is to be seen.
    calcRect(start, duration, level) {
        const rect = super.calcRect(start, duration, level);
        rect.w = Math.max(rect.w, 1);
        return rect;
    }

    calcMinMax() {
        this.min = 0;
        this.max = this.model === undefined ? 1 : this.model.durationMs;
    }

    get rowHeight() {
        return this.renderEngine.blockHeight + 1;
    }
    get contentHeight() {
        return this.model.rowCount * this.rowHeight + 8;
    }
    setPositionY(y) {
        const most = Math.max(0, this.contentHeight - (this.renderEngine?.height ?? 0));
        this.positionY = Math.min(Math.max(0, y), most);
    }
    yOfRow(row) {
        return row * this.rowHeight - this.positionY;
    }
    trackAt(y) {
        const row = Math.floor((y + this.positionY) / this.rowHeight);
        const index = this.model.tracks.findIndex((track) => track.top === row);
        return index === -1 ? null : index;
    }

    // ---- the mouse ----

    handleSelect() {} // See handleClick().

    handleHover(region) {
        super.handleHover(region);
        this.tellHover();
    }

    handleMove() {
        const mouse = this.interactionsEngine.getMouse();
        const near = this.instantNear(mouse.x, mouse.y);
        if (near === this.hoveredInstant) return;
        this.hoveredInstant = near;
        this.tellHover();
        this.renderEngine.render();
    }

    handleClick() {
        const mouse = this.interactionsEngine.getMouse();
        const instant = this.instantNear(mouse.x, mouse.y);
        this.onPick(instant ?? this.hoveredRegion?.data.source.item ?? null);
    }

    tellHover() {
        const item = this.hoveredInstant ?? this.hoveredRegion?.data.source.item ?? null;
        this.onHover(item, this.interactionsEngine.getGlobalMouse());
    }

    instantNear(x, y) {
        const track = this.trackAt(y);
        if (track === null) return null;
        const { model } = this;
        let best = null;
        let bestRank = -1;
        for (const item of this.visibleInstants(track, NEAR)) {
            const distance = Math.abs(this.renderEngine.timeToPosition(model.begin(item)) - x);
            if (distance > NEAR) continue;
            const rank = 10 * (RANKS[model.category(item)] ?? 9) - distance;
            if (rank > bestRank) [best, bestRank] = [item, rank];
        }
        return best;
    }

    visibleInstants(track, margin) {
        const items = this.model.instantsOf[track];
        const engine = this.renderEngine;
        const first = lowerBound(items, this.model, engine.positionX - engine.pixelToTime(margin));
        const last = lowerBound(
            items,
            this.model,
            engine.positionX + engine.getRealView() + engine.pixelToTime(margin),
        );
        return items.slice(first, last);
    }

    renderTooltip() {
        return true; // Ours is no part of the canvas: see Chart.
    }

    // ---- what is drawn ----

    render() {
        this.setPositionY(this.positionY);
        const colours = theme();
        const { renderEngine: engine, model } = this;
        for (const track of model.tracks) {
            const y = this.yOfRow(track.top);
            if (y < -this.rowHeight || y > engine.height) continue;
            engine.addRect({ color: colours.label, x: 0, y, w: engine.width });
        }
        super.render();
        engine.standardRender();
        const { ctx } = engine;
        ctx.save();
        this.drawTracks(ctx, colours);
        this.drawFound(ctx, colours);
        this.drawArrows(ctx, colours);
        this.drawSelected(ctx, colours);
        ctx.restore();
        return true;
    }

    drawTracks(ctx, colours) {
        const engine = this.renderEngine;
        ctx.textBaseline = "middle";
        this.model.tracks.forEach((track, index) => {
            const y = this.yOfRow(track.top);
            if (y < -this.rowHeight || y > engine.height) return;
            ctx.fillStyle = colours.stripe;
            ctx.fillRect(0, y, engine.width, 1);
            this.drawInstants(ctx, colours, index, y);
            ctx.font = `600 ${engine.styles.font}`;
            const width = ctx.measureText(track.name).width;
            ctx.fillStyle = colours.label;
            ctx.fillRect(0, y + 1, width + 14, engine.blockHeight - 1);
            ctx.fillStyle = colours.text;
            ctx.fillText(track.name, 6, y + engine.blockHeight / 2 + 1);
        });
    }

    drawInstants(ctx, colours, track, y) {
        const engine = this.renderEngine;
        const { model } = this;
        const drawn = new Map(); // Category: the last pixel.
        const middle = y + engine.blockHeight / 2;
        const important = [];
        for (const item of this.visibleInstants(track, 6)) {
            const category = model.category(item);
            const x = Math.round(engine.timeToPosition(model.begin(item)));
            if (drawn.get(category) === x) continue;
            drawn.set(category, x);
            if (RANKS[category] === undefined) {
                important.push([x, category]);
            } else {
                ctx.fillStyle = colours.instants[category];
                ctx.fillRect(x, y + 3, category === "other" ? 1 : 2, engine.blockHeight - 5);
            }
        }
        for (const [x, category] of important)
            diamond(ctx, colours.instants[category], x, middle, 6);
    }

    drawFound(ctx, colours) {
        const engine = this.renderEngine;
        const { model } = this;
        ctx.strokeStyle = colours.found;
        ctx.lineWidth = 2;
        for (const item of this.found) {
            const { x, y, w } = this.rectOf(item);
            if (x + w < 0 || x > engine.width || y < -20 || y > engine.height) continue;
            ctx.strokeRect(x, y + 1, Math.max(w, 2), engine.blockHeight - 2);
        }
    }

    rectOf(item) {
        const { model } = this;
        const rect = this.calcRect(model.begin(item), model.duration(item), model.row(item));
        return model.isSlice(item) ? rect : { x: rect.x - 5, y: rect.y, w: 10 };
    }

    drawArrows(ctx, colours) {
        const engine = this.renderEngine;
        const { model, selected } = this;
        const chosen =
            selected === null || !model.isSlice(selected)
                ? []
                : [...model.from(selected), ...model.to(selected)];
        const from = engine.positionX;
        const to = from + engine.getRealView();
        const visible = [];
        for (const arrow of model.arrows) {
            if (arrow.toMs < from || arrow.fromMs > to) continue;
            visible.push(arrow);
            if (visible.length > MAX_ARROWS) break;
        }
        ctx.lineWidth = 1;
        if (visible.length <= MAX_ARROWS) {
            for (const arrow of visible) this.drawArrow(ctx, colours.arrow, arrow);
        }
        ctx.lineWidth = 2;
        for (const arrow of chosen) this.drawArrow(ctx, colours.chosen, arrow);
    }

    drawArrow(ctx, colour, { from, to, fromMs, toMs }) {
        const engine = this.renderEngine;
        const half = engine.blockHeight / 2;
        const x1 = engine.timeToPosition(fromMs);
        const x2 = engine.timeToPosition(toMs);
        const y1 = this.yOfRow(this.model.row(from)) + half;
        const y2 = this.yOfRow(this.model.row(to)) + half;
        if (Math.max(y1, y2) < 0 || Math.min(y1, y2) > engine.height) return;
        const bend = Math.min(60, 12 + Math.abs(x2 - x1) / 2);
        ctx.strokeStyle = colour;
        ctx.fillStyle = colour;
        ctx.beginPath();
        ctx.moveTo(x1, y1);
        ctx.bezierCurveTo(x1 + bend, y1, x2 - bend, y2, x2, y2);
        ctx.stroke();
        ctx.beginPath();
        ctx.moveTo(x2, y2);
        ctx.lineTo(x2 - 6, y2 - 3.5);
        ctx.lineTo(x2 - 6, y2 + 3.5);
        ctx.fill();
    }

    drawSelected(ctx, colours) {
        if (this.selected === null) return;
        const { x, y, w } = this.rectOf(this.selected);
        ctx.strokeStyle = colours.chosen;
        ctx.lineWidth = 2;
        ctx.strokeRect(x - 1, y, Math.max(w, 3) + 2, this.renderEngine.blockHeight);
    }
}

function compare(a, b) {
    return a < b ? -1 : Number(a > b);
}

function diamond(ctx, colour, x, y, size) {
    ctx.fillStyle = colour;
    ctx.beginPath();
    ctx.moveTo(x, y - size);
    ctx.lineTo(x + size, y);
    ctx.lineTo(x, y + size);
    ctx.lineTo(x - size, y);
    ctx.fill();
}

function lowerBound(items, model, ms) {
    let first = 0;
    let last = items.length;
    while (first < last) {
        const middle = (first + last) >> 1;
        if (model.begin(items[middle]) < ms) first = middle + 1;
        else last = middle;
    }
    return first;
}
