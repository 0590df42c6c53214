// Counters as lines, with their names in their colours.

import { TimeseriesPlugin } from "flame-chart-js";

import { theme } from "./theme.js";

export class CountersPlugin extends TimeseriesPlugin {
    constructor(name, model, counters) {
        super({
            name,
            data: counters.map((counter) => seriesOf(counter, model)),
            settings: { styles: { height: 44 } },
        });
        this.min = 0;
        this.max = model.durationMs;
    }

    // The library's own charts are outlines, closed along the bottom; these are values that hold
    // until the next one.
    render() {
        const { ctx, styles } = this.renderEngine;
        const colours = theme();
        ctx.save();
        ctx.font = styles.font;
        ctx.textBaseline = "top";
        let x = 6;
        this.data.timeseries.forEach((chart, index) => {
            const colour = colours.counters[index % colours.counters.length];
            this.drawSteps(ctx, chart, colour);
            const width = ctx.measureText(chart.name).width;
            ctx.globalAlpha = 0.75;
            ctx.fillStyle = colours.background;
            ctx.fillRect(x - 2, 2, width + 4, 13);
            ctx.globalAlpha = 1;
            ctx.fillStyle = colour;
            ctx.fillText(chart.name, x, 4);
            x += width + 14;
        });
        ctx.restore();
        this.renderEngine.renderTimeGrid();
        const { width } = this.renderEngine;
        this.interactionsEngine.addHitRegion("timeseries", null, 0, 0, width, this.height);
        return true;
    }

    drawSteps(ctx, { points, group }, colour) {
        const engine = this.renderEngine;
        const top = 18;
        const most = this.data.summary[group].max;
        const yOf = (value) =>
            engine.height - 2 - (most > 0 ? value / most : 0) * (engine.height - 2 - top);
        ctx.strokeStyle = colour;
        ctx.lineWidth = 1.5;
        ctx.beginPath();
        points.forEach(([ms, value], index) => {
            const x = engine.timeToPosition(ms);
            if (index === 0) ctx.moveTo(x, yOf(value));
            else {
                ctx.lineTo(x, yOf(points[index - 1][1]));
                ctx.lineTo(x, yOf(value));
            }
        });
        ctx.stroke();
    }
}

// The last value holds until the end.
function seriesOf({ name, unit, group, points }, model) {
    return {
        name: unit === "" ? name : `${name} [${unit}]`,
        units: unit === "" ? undefined : ` ${unit}`,
        group: group === "counters" ? name : group,
        min: 0,
        points: [
            ...points.map(([ns, value]) => [ns / 1e6, value]),
            [model.durationMs, points[points.length - 1][1]],
        ],
    };
}
