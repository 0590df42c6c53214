// Fingers: one pans and scrolls, two zoom. A tap is a click, which the browser makes of it.

export function addTouch(canvas, chart) {
    const fingers = new Map();
    let distance = 0;

    const spread = () => {
        const [a, b] = [...fingers.values()];
        return { distance: Math.max(20, Math.abs(a.x - b.x)), middle: (a.x + b.x) / 2 };
    };
    canvas.addEventListener("pointerdown", (event) => {
        if (event.pointerType !== "touch") return;
        fingers.set(event.pointerId, { x: event.offsetX, y: event.offsetY });
        if (fingers.size === 2) distance = spread().distance;
    });
    canvas.addEventListener("pointermove", (event) => {
        const finger = fingers.get(event.pointerId);
        if (finger === undefined) return;
        const before = { ...finger };
        Object.assign(finger, { x: event.offsetX, y: event.offsetY });
        if (fingers.size === 1) {
            chart.pan((before.x - finger.x) / chart.engine.width);
            chart.scroll(before.y - finger.y);
        } else if (fingers.size === 2) {
            const now = spread();
            chart.zoom(distance / now.distance, now.middle);
            distance = now.distance;
        }
    });
    for (const name of ["pointerup", "pointercancel", "pointerleave"]) {
        canvas.addEventListener(name, (event) => fingers.delete(event.pointerId));
    }
}
