// The page of ostrum flame: d3-flame-graph over the columns that the page carries, with its controls. What is
// chosen stands behind the page's "#", so that a view can be kept and sent to others. Names reach the page
// as text nodes and attributes only, never as HTML.
import flamegraph from "d3-flame-graph";
import { select } from "d3-selection";

const data = JSON.parse(document.getElementById("flame-data").textContent);
const frames = data.frames; // columns, by frame; a frame's caller stands before it
const compared = data.compared !== undefined;
const element = (id) => document.getElementById(id);

// --- texts

function durationText(ns) {
    const size = Math.abs(ns);
    const sign = ns < 0 ? "-" : "";
    if (size >= 99.95e9) {
        const seconds = Math.floor(size / 1e9);
        const two = (number) => String(number).padStart(2, "0");
        return seconds < 3600
            ? `${sign}${Math.floor(seconds / 60)}m${two(seconds % 60)}s`
            : `${sign}${Math.floor(seconds / 3600)}h${two(Math.floor(seconds / 60) % 60)}m`;
    }
    for (const [unit, name] of [[1e9, "s"], [1e6, "ms"], [1e3, "us"]]) {
        if (size >= 0.9995 * unit) {
            return sign + Number((size / unit).toPrecision(3)) + name;
        }
    }
    return `${sign}${size}ns`;
}

function shareText(part, whole) {
    return whole > 0 ? `${((100 * part) / whole).toFixed(1)}%` : "-";
}

function figuresText(index, side) {
    const of = (column) => frames[column + side][index];
    const calls = of("calls");
    if (calls === 0) {
        return `${durationText(of("width"))}`;
    }
    const errors = of("errors");
    return (
        `${durationText(of("total"))} in ${calls} ${calls === 1 ? "call" : "calls"}, ` +
        `${durationText(of("total") / calls)} on average, ${durationText(of("self"))} in itself` +
        (errors > 0 ? `, ${errors} with error` : "")
    );
}

function changeText(index) {
    const state = frames.state[index];
    if (state !== 0) {
        return state === 1 ? "new" : "gone";
    }
    const percent = frames.percent[index];
    return percent === null ? "" : `${data.metric}: ${percent > 0 ? "+" : ""}${percent}%`;
}

// The lines about a frame, also its tooltip.
function describe(node) {
    const { index, name, v } = node.data;
    const detail = data.details[frames.detail[index]];
    const callerWidth = node.parent ? node.parent.data.v : v;
    const lines = [
        name + (detail === "" ? "" : ` - ${detail}`),
        `${shareText(v, tree.v)} of all, ${shareText(v, callerWidth)} of its caller`,
    ];
    if (compared) {
        lines.push(`after: ${frames.state[index] === 2 ? "-" : figuresText(index, "")}`);
        lines.push(`before: ${frames.state[index] === 1 ? "-" : figuresText(index, "_before")}`);
        lines.push(changeText(index));
    } else {
        lines[1] += `, ${figuresText(index, "")}`;
    }
    return lines.filter((line) => line !== "").join("\n");
}

// --- the tree

const widths = {
    after: (index) => frames.width[index],
    before: (index) => frames.width_before[index],
    both: (index) => frames.width[index] + frames.width_before[index],
};

const nodes = frames.parent.map((parent, index) => ({
    index,
    name: data.labels[frames.label[index]],
    v: 0,
    children: undefined,
}));
for (let index = 1; index < nodes.length; ++index) {
    const caller = nodes[frames.parent[index]];
    (caller.children ??= []).push(nodes[index]);
}
const tree = nodes[0];

// --- what is chosen

const chosen = {
    search: "",
    zoom: 0,
    invert: data.icicle ? "1" : "",
    palette: data.palette,
    width: data.width,
    theme: matchMedia("(prefers-color-scheme: dark)").matches ? "dark" : "light",
};
const preset = { ...chosen };
for (const [key, value] of new URLSearchParams(location.hash.slice(1))) {
    if (key in chosen) {
        chosen[key] = value;
    }
}
chosen.width = chosen.width in widths && compared ? chosen.width : "after";
chosen.palette = chosen.palette in data.palettes ? chosen.palette : "warm";

function keepChoice() {
    const kept = Object.entries(chosen).filter(([key, value]) => String(value) !== String(preset[key]));
    const text = new URLSearchParams(kept).toString();
    try {
        history.replaceState(null, "", text === "" ? "#" : `#${text}`);
    } catch {
        // Some places that show a page allow no change of its address: the view just is not kept.
    }
}

// --- the chart

const chart = flamegraph();
let searching = false;

function colourOf(node) {
    const index = node.data.index;
    if (searching) {
        return node.highlight ? data.match_colours[0] : data.match_colours[1];
    }
    if (compared) {
        return data.change_colours[frames.step[index]];
    }
    const shade = frames.shade[index];
    return shade < 0 ? data.match_colours[1] : data.palettes[chosen.palette][shade];
}

// Thinner frames are left out until a zoom makes them wide enough: what is drawn depends on the screen, not
// on the size of the tree.
const thinnestPixels = 1;
const chartWidth = () => Math.max(320, element("chart").clientWidth);

function rootNode() {
    return select("#chart").datum();
}

function nodeOf(index) {
    let found = null;
    rootNode().each((node) => {
        found = node.data.index === index ? node : found;
    });
    return found;
}

function setWidths() {
    const widthOf = widths[chosen.width];
    for (const node of nodes) {
        node.v = widthOf(node.index);
    }
}

function matcherOf(text) {
    try {
        const pattern = new RegExp(text, "i");
        return (name) => pattern.test(name);
    } catch {
        const literal = text.toLowerCase(); // half an expression, or a name with a bracket
        return (name) => name.toLowerCase().includes(literal);
    }
}

// Of frames within one another only the outermost counts towards the sum.
function search() {
    searching = chosen.search !== "";
    const matches = searching ? matcherOf(chosen.search) : () => false;
    const matched = data.labels.map(matches);
    let count = 0;
    let width = 0;
    rootNode().each((node) => {
        const { index, v } = node.data;
        node.highlight = index !== 0 && matched[frames.label[index]];
        node.inMatch = node.highlight || (node.parent?.inMatch ?? false);
        count += node.highlight ? 1 : 0;
        width += node.highlight && !node.parent.inMatch ? v : 0;
    });
    element("found").textContent = searching
        ? `${count} ${count === 1 ? "path" : "paths"}, ${shareText(width, tree.v)} of all`
        : "";
}

// --- the controls

function showChoice() {
    document.documentElement.dataset.theme = chosen.theme;
    element("search").value = chosen.search;
    element("palette").value = chosen.palette;
    element("width").value = chosen.width;
    element("invert").setAttribute("aria-pressed", chosen.invert !== "");
    element("theme").setAttribute("aria-pressed", chosen.theme === "dark");
    element("reset").disabled = Number(chosen.zoom) === 0;
}

function choose(key, value) {
    chosen[key] = value;
    keepChoice();
    showChoice();
}

function connectControls() {
    let pending = 0;
    element("search").addEventListener("input", (event) => {
        clearTimeout(pending);
        pending = setTimeout(() => {
            choose("search", event.target.value);
            search();
            chart.update();
        }, 150);
    });
    element("reset").addEventListener("click", () => chart.resetZoom());
    element("invert").addEventListener("click", () => {
        choose("invert", chosen.invert === "" ? "1" : "");
        chart.inverted(chosen.invert !== "").update();
    });
    element("palette").addEventListener("change", (event) => {
        choose("palette", event.target.value);
        chart.update();
    });
    element("width").addEventListener("change", (event) => {
        choose("width", event.target.value);
        setWidths();
        search();
        chart.update();
    });
    element("theme").addEventListener("click", () => {
        choose("theme", chosen.theme === "dark" ? "light" : "dark");
    });
    document.addEventListener("keydown", (event) => {
        if (event.key === "Escape" && event.target !== element("search")) {
            chart.resetZoom();
        } else if (event.key === "/" && event.target.tagName !== "INPUT") {
            event.preventDefault();
            element("search").focus();
        }
    });
    addEventListener("resize", () => chart.width(chartWidth()).update());
}

function showTexts() {
    element("title").textContent = document.title = data.title;
    element("about").textContent = data.about;
    if (!compared) {
        return;
    }
    element("palette-choice").hidden = true;
    element("width-choice").hidden = false;
    element("legend").hidden = false;
    data.change_colours.forEach((colour, step) => {
        const part = document.createElement("span");
        part.style.background = colour;
        part.textContent = data.change_texts[step];
        element("legend").append(part);
    });
}

function draw() {
    setWidths();
    chart
        .width(chartWidth())
        .cellHeight(18)
        .minFrameSize(thinnestPixels)
        .resetHeightOnZoom(true)
        .inverted(chosen.invert !== "")
        .transitionDuration(0)
        .label(describe)
        .color(colourOf)
        .setDetailsHandler(() => {})
        .onHover((node) => {
            element("details").textContent = describe(node);
        })
        .onClick((node) => {
            choose("zoom", node.data.index);
            element("details").textContent = describe(node);
        });
    select("#chart").datum(tree).call(chart);
    const zoomed = Number(chosen.zoom) > 0 ? nodeOf(Number(chosen.zoom)) : null;
    if (zoomed !== null) {
        chart.zoomTo(zoomed);
    }
    if (chosen.search !== "") {
        search();
        chart.update();
    }
    if (chosen.invert === "") {
        scrollTo(0, document.documentElement.scrollHeight); // the outermost operations are at the bottom
    }
    // New frames grow to their width in any case; at first they should just be there.
    select("#chart")
        .selectAll("rect")
        .interrupt()
        .attr("width", (node) => (node.x1 - node.x0) * chart.width());
    if (!matchMedia("(prefers-reduced-motion: reduce)").matches) {
        chart.transitionDuration(200);
    }
}

showTexts();
showChoice();
connectControls();
draw();
// For those who measure: when the chart stood, in ms since the page was asked for.
document.body.getBoundingClientRect();
document.documentElement.dataset.drawnMs = Math.round(performance.now());
