// Counters as lines, with their names in their colours.

import { TimeseriesPlugin } from "flame-chart-js";

import { theme } from "./theme.js";

export class CountersPlugin extends TimeseriesPlugin {
    constructor(name, model, counters) {
        super({ name, data: counters.map((counter, index) => seriesOf(counter, index, model)),
            settings: { styles: { height: 44 } } });
        this.min = 0;
        this.max = model.durationMs;
    }

    applyTheme() {
        const colours = theme().counters;
        this.data.timeseries.forEach((chart, index) => {
            chart.style.lineColor = colours[index % colours.length];
        });
    }

    render() {
        super.render();
        this.renderEngine.standardRender();
        const { ctx, styles } = this.renderEngine;
        const colours = theme();
        let x = 6;
        ctx.save();
        ctx.font = styles.font;
        ctx.textBaseline = "top";
        this.data.timeseries.forEach((chart, index) => {
            const width = ctx.measureText(chart.name).width;
            ctx.globalAlpha = 0.75;
            ctx.fillStyle = colours.background;
            ctx.fillRect(x - 2, 2, width + 4, 13);
            ctx.globalAlpha = 1;
            ctx.fillStyle = colours.counters[index % colours.counters.length];
            ctx.fillText(chart.name, x, 4);
            x += width + 14;
        });
        ctx.restore();
        return true;
    }
}

// A value holds until the next one, and the last one until the end.
function seriesOf({ name, unit, group, points }, index, model) {
    const steps = [];
    for (const [ns, value] of [...points, [model.durationMs * 1e6, points[points.length - 1][1]]]) {
        if (steps.length > 0) steps.push([ns / 1e6, steps[steps.length - 1][1]]);
        steps.push([ns / 1e6, value]);
    }
    steps.push([model.durationMs, 0]);  // The library closes the outline with a straight line.
    return {
        name: unit === "" ? name : `${name} [${unit}]`,
        units: unit === "" ? undefined : ` ${unit}`,
        group: group === "counters" ? name : group,
        min: 0,
        points: steps,
        style: { type: "line", fillColor: "rgba(0, 0, 0, 0)", lineColor: theme().counters[index % 8], lineWidth: 1.5 },
    };
}
