"use strict";
// The curves of the page. One window of time is shown of all runs; a run's panels are charts of
// dygraphs on the same scale of time. What is drawn of a long trace is thinned to what the screen
// can show, from the whole data, anew for each window.
(function () {
  const data = JSON.parse(document.getElementById("data").textContent);
  const byId = (id) => document.getElementById(id);
  const AXIS = 84;  // pixels left of every chart
  const RIGHT = 14;
  const LANE = 20;  // height of a lane of marks
  const MOST_POINTS = 2600;  // of a curve, more than a wide screen can show
  const NEAR = 6;  // pixels between the pointer and a mark that it shows
  const MOST_TIPS = 8;
  const SHORTEST = 0.05;  // seconds that can be shown
  const LANE_NAMES = {
    station: "channel", group: "P2P", power: "power", command: "commands", event: "events",
    callback: "callbacks", atom: "atoms", netlink: "netlink", daemon: "daemon", note: "notes",
    poll: "polls",
  };
  const STEPS = ["upper", "middle", "lower"];

  function element(tag, className, text) {
    const made = document.createElement(tag);
    if (className) made.className = className;
    if (text !== undefined) made.textContent = text;
    return made;
  }

  // The colours and the size of letters of the style sheet, for what is drawn and has no style.
  let colors = {};
  let font = "";

  function readStyle() {
    colors = {};
    const size = parseFloat(getComputedStyle(document.documentElement).fontSize) * 0.86;
    font = size.toFixed(1) + "px system-ui, sans-serif";
  }

  function color(name) {
    colors[name] = colors[name] ||
      getComputedStyle(document.documentElement).getPropertyValue("--" + name).trim();
    return colors[name];
  }

  // ---- Data --------------------------------------------------------------------------------

  /** Seconds from differences in milliseconds. */
  function times(steps) {
    const result = new Float64Array(steps.length);
    let at = 0;
    for (let i = 0; i < steps.length; ++i) {
      at += steps[i];
      result[i] = at / 1000;
    }
    return result;
  }

  /** The number of times before `t`. */
  function before(t, of) {
    let low = 0, high = of.length;
    while (low < high) {
      const middle = (low + high) >> 1;
      if (of[middle] < t) low = middle + 1; else high = middle;
    }
    return low;
  }

  const signals = data.signals.map((signal) => ({t: times(signal.t), dbm: signal.dbm}));
  for (const run of data.runs) {
    run.duration = Math.max(run.duration / 1000, 0.001);
    run.samples = signals[run.signal];
    for (const lane of run.lanes) {
      lane.t = times(lane.t);
      lane.refused = new Set(lane.refused);
    }
    for (const changes of [run.power, run.groupPower, run.chains]) {
      for (const change of changes) change[0] /= 1000;
    }
    for (const stretches of [run.station, run.group]) {
      for (const stretch of stretches) { stretch[0] /= 1000; stretch[1] /= 1000; }
    }
  }

  /** Rows [t, dBm] of the window, and a little beyond; thinned to the extremes of each stretch. */
  function signalRows(samples, from, to) {
    const first = Math.max(before(from, samples.t) - 1, 0);
    const last = Math.min(before(to, samples.t) + 1, samples.t.length);
    const rows = [];
    if (last - first <= MOST_POINTS) {
      for (let i = first; i < last; ++i) rows.push([samples.t[i], samples.dbm[i]]);
    } else {
      const stretch = (last - first) / (MOST_POINTS / 2);
      for (let k = 0; k < MOST_POINTS / 2; ++k) {
        const begin = first + Math.floor(k * stretch);
        const end = Math.min(first + Math.floor((k + 1) * stretch), last);
        let low = -1, high = -1, none = -1;
        for (let i = begin; i < end; ++i) {
          const value = samples.dbm[i];
          if (value === null) none = i;
          else {
            if (low < 0 || value < samples.dbm[low]) low = i;
            if (high < 0 || value > samples.dbm[high]) high = i;
          }
        }
        const kept = [...new Set([low, high, none])].filter((i) => i >= 0);
        kept.sort((a, b) => a - b);
        for (const i of kept) rows.push([samples.t[i], samples.dbm[i]]);
      }
    }
    return rows.length ? rows : [[0, null], [1, null]];
  }

  /** Rows for a chart of steps: [t, value of each column], from changes [t, column, value]. */
  function stepRows(changes, columns, end) {
    const now = new Array(columns).fill(null);
    const rows = [[0, ...now]];
    for (const [t, column, value] of changes) {
      now[column] = value;
      rows.push([t, ...now]);
    }
    rows.push([end, ...now]);
    return rows;
  }

  /** The last change at or before t, or undefined. */
  function inForce(changes, t, test) {
    for (let i = changes.length - 1; i >= 0; --i) {
      if (changes[i][0] <= t && (!test || test(changes[i]))) return changes[i];
    }
    return undefined;
  }

  // ---- Words -------------------------------------------------------------------------------

  function elapsed(t, places) {
    const sign = t < 0 ? "-" : "";
    const scale = Math.pow(10, places || 0);
    let rest = Math.round(Math.abs(t) * scale) / scale;
    const hours = Math.floor(rest / 3600);
    rest -= hours * 3600;
    const minutes = Math.floor(rest / 60 + 1e-9);
    rest = Math.max(rest - minutes * 60, 0);
    const seconds = rest.toFixed(places || 0).padStart(places ? 3 + places : 2, "0");
    const front = hours ? hours + ":" + String(minutes).padStart(2, "0") : minutes;
    return sign + front + ":" + seconds;
  }

  const TICKS = [0.01, 0.02, 0.05, 0.1, 0.2, 0.5, 1, 2, 5, 10, 15, 30, 60, 120, 300, 600, 900, 1800,
    3600, 7200, 10800, 21600, 43200, 86400];

  function timeTicks(from, to, pixels) {
    const wanted = (to - from) / Math.max(pixels / 90, 2);
    const step = TICKS.find((tick) => tick >= wanted) ||
      86400 * Math.ceil(wanted / 86400);
    const places = step < 0.1 ? 2 : step < 1 ? 1 : 0;
    const ticks = [];
    for (let k = Math.max(Math.ceil(from / step), 0); k * step <= to; ++k) {
      ticks.push({v: k * step, label: elapsed(k * step, places)});
    }
    return ticks;
  }

  function channelNumber(mhz) {
    if (mhz === 2484) return 14;
    if (mhz < 2500) return Math.round((mhz - 2407) / 5);
    return Math.round((mhz - (mhz < 5950 ? 5000 : 5950)) / 5);
  }

  const band = (mhz) => (mhz < 3000 ? 2 : mhz < 5950 ? 5 : 6);

  function channelText(stretch) {
    const width = stretch[3] ? ", " + stretch[3] + " MHz wide" : "";
    const ghz = {2: "2.4", 5: "5", 6: "6"}[band(stretch[2])];
    return "channel " + channelNumber(stretch[2]) + " (" + stretch[2] + " MHz, " + ghz + " GHz" +
      width + ")";
  }

  function wallText(run, t) {
    if (run.wall === null || run.wall === undefined) return "";
    const date = new Date((run.wall + t) * 1000);
    if (isNaN(date)) return "";
    return date.toISOString().replace("T", " ").slice(0, 23) + " UTC";
  }

  // ---- Window ------------------------------------------------------------------------------

  let longestRun = 1;
  let whole = [0, 1];
  let shown = [0, 1];
  let views = [];
  let waiting = false;

  /** Shows this stretch of time in every run that is on the screen, at the next frame. */
  function show(from, to) {
    const longest = whole[1] - whole[0];
    const length = Math.min(Math.max(to - from, SHORTEST), longest);
    const middle = (from + to) / 2;
    const start = Math.min(Math.max(middle - length / 2, whole[0]), whole[1] - length);
    shown = [start, start + length];
    if (!waiting) {
      waiting = true;
      requestAnimationFrame(() => {
        waiting = false;
        views.forEach((view) => view.refresh());
        overview.refresh();
        const places = shown[1] - shown[0] < 10 ? 2 : 0;
        byId("window").textContent = elapsed(Math.max(shown[0], 0), places) + " – " +
          elapsed(Math.min(shown[1], longestRun), places);
      });
    }
  }

  const zoom = (factor, at) => show(at - (at - shown[0]) * factor, at + (shown[1] - at) * factor);
  const move = (share) => {
    const by = (shown[1] - shown[0]) * share;
    show(shown[0] + by, shown[1] + by);
  };
  const center = () => (shown[0] + shown[1]) / 2;
  const actions = {
    in: () => zoom(0.5, center()),
    out: () => zoom(2, center()),
    left: () => move(-0.25),
    right: () => move(0.25),
    all: () => show(whole[0], whole[1]),
  };
  const keys = {"+": "in", "=": "in", "-": "out", ArrowLeft: "left", ArrowRight: "right", 0: "all"};

  // ---- Charts ------------------------------------------------------------------------------

  /** Options that every chart has. */
  function common(more) {
    const x = {
      drawAxis: Boolean(more.withTimes),
      drawGrid: true,
      axisLabelWidth: 90,
      ticker: (from, to, pixels) => timeTicks(from, to, pixels),
    };
    const y = Object.assign({axisLabelWidth: AXIS - 6}, more.y);
    return Object.assign({
      axes: {x, y}, interactionModel: {}, legend: "never", showLabelsOnHighlight: false,
      highlightCircleSize: 0, rightGap: RIGHT, dateWindow: shown.slice(), strokeWidth: 1.6,
      gridLineColor: color("grid"), axisLineColor: color("line"), axisTickSize: 3,
      gridLineWidth: 1, xRangePad: 0, animatedZooms: false,
    }, more.options);
  }

  function decibelTicks(low, high, least) {
    let step = least;
    while ((high - low) / step > 12) step *= 2;
    const ticks = [];
    for (let v = Math.ceil(low / step) * step; v <= high; v += step) {
      ticks.push({v, label: String(v).replace("-", "−")});
    }
    return ticks;
  }

  /** Writes on a chart, with its ground around the letters. */
  function write(context, text, x, y, ink) {
    context.lineWidth = 4;
    context.lineJoin = "round";
    context.setLineDash([]);
    context.strokeStyle = color("card");
    context.strokeText(text, x, y);
    context.fillStyle = color(ink);
    context.fillText(text, x, y);
  }

  function writeCaption(context, text, area) {
    context.font = font;
    context.textAlign = "left";
    context.textBaseline = "alphabetic";
    write(context, text, area.x + 6, area.y + 15, "soft");
  }

  /** A plugin of dygraphs that draws over the curves. */
  function over(draw) {
    return {
      toString: () => "over",
      activate: () => ({
        didDrawChart: (event) => {
          event.drawingContext.save();
          draw(event.drawingContext, event.dygraph);
          event.drawingContext.restore();
        },
      }),
      destroy: () => {},
    };
  }

  function makePanel(view, kind, height) {
    const panel = element("div", "panel " + kind);
    if (height) panel.style.height = height + "px";
    view.plots.append(panel);
    return panel;
  }

  /** Lines of the same height as one, with the words of all; from the highest to the lowest. */
  function joined(lines) {
    const byHeight = new Map();
    for (const [dbm, words] of lines) {
      byHeight.set(dbm, byHeight.has(dbm) ? byHeight.get(dbm) + ", " + words : words);
    }
    return [...byHeight].sort((a, b) => b[0] - a[0]);
  }

  /** Signal with the thresholds in force and the bands between a step's two thresholds. */
  function signalChart(view) {
    const run = view.run;
    const limits = run.thresholds;
    const known = run.samples.dbm.filter((dbm) => dbm !== null);
    let low = -80, high = -45;
    for (const dbm of known) { low = Math.min(low, dbm); high = Math.max(high, dbm); }
    low = Math.floor((low - 3) / 5) * 5;
    high = Math.ceil((high + 3) / 5) * 5;
    const lines = [], bands = [];
    if (limits.per_chain) {
      bands.push([limits.low_rssi_lower, limits.low_rssi_upper]);
      lines.push([limits.low_rssi_lower, "weak on 2.4 GHz above"],
        [limits.low_rssi_upper, "weak on 2.4 GHz below"]);
    } else if (limits.rssi_upper !== undefined) {
      bands.push([limits.rssi_middle_upper, limits.rssi_upper],
        [limits.rssi_lower, limits.rssi_middle_lower]);
      lines.push([limits.rssi_upper, "lower above"], [limits.rssi_middle_upper, "middle below"],
        [limits.rssi_middle_lower, "middle above"], [limits.rssi_lower, "upper below"]);
    }
    const panel = makePanel(view, "signal");
    panel.dataset.thresholds = lines.length;
    panel.setAttribute("aria-label", "Signal, dBm");
    const chart = new Dygraph(panel, signalRows(run.samples, ...shown), common({
      y: {ticker: (a, b) => decibelTicks(a, b, 10)},
      options: {
        labels: ["t", "dBm"], valueRange: [low, high], colors: [color("signal")],
        plugins: [over((context, g) => {
          const area = g.getArea();
          writeCaption(context, "signal, dBm", area);  // sets the font, too
          context.textAlign = "right";
          const size = parseFloat(font);
          let free = area.y + size;
          for (const [dbm, words] of joined(lines)) {
            const y = Math.max(g.toDomYCoord(dbm) - 4, free);
            write(context, words + " " + String(dbm).replace("-", "−"), area.x + area.w - 5, y,
              "threshold");
            free = y + size + 1;
          }
        })],
        underlayCallback: (context, area, g) => {
          context.save();
          for (const [from, to] of bands) {
            if (from === undefined || to === undefined) continue;
            const top = g.toDomYCoord(Math.max(from, to)), end = g.toDomYCoord(Math.min(from, to));
            // The wrong way around, a step's two thresholds make the power flutter.
            context.fillStyle = color(from <= to ? "band" : "flutter");
            context.fillRect(area.x, top, area.w, end - top);
          }
          for (const [dbm] of lines) {
            const y = Math.round(g.toDomYCoord(dbm)) + 0.5;
            context.strokeStyle = color("threshold");
            context.setLineDash([5, 4]);
            context.beginPath();
            context.moveTo(area.x, y);
            context.lineTo(area.x + area.w, y);
            context.stroke();
          }
          context.restore();
        },
      },
    }));
    view.add(panel, chart, () => {
      const rows = signalRows(run.samples, ...shown);
      panel.dataset.rows = rows.length;
      return {file: rows, drawPoints: rows.length < 150, pointSize: 2.2};
    });
  }

  /** The power of the group while there is one: [t, 1, dBm], null at its end. */
  function groupChanges(run) {
    const accepted = run.groupPower.filter((change) => change[3]);
    return run.group.flatMap(([from, to]) => {
      const first = inForce(accepted, from);
      const inside = accepted.filter((change) => change[0] > from && change[0] < to);
      return [
        [from, 1, first ? first[1] : null],
        ...inside.map((change) => [change[0], 1, change[1]]),
        [to, 1, null],
      ];
    });
  }

  /** Power as sent, the station's filled with its step's colour. */
  function powerChart(view) {
    const run = view.run;
    const accepted = run.power.filter((change) => change[3]);
    const changes = accepted.map((change) => [change[0], 0, change[1]])
      .concat(groupChanges(run)).sort((a, b) => a[0] - b[0]);
    const most = Math.max(20, ...run.power.concat(run.groupPower).map((change) => change[1]));
    const P2P = {strokePattern: [6, 4], strokeWidth: 2};
    const panel = makePanel(view, "power");
    panel.setAttribute("aria-label", "Power, dBm");
    const chart = new Dygraph(panel, stepRows(changes, 2, run.duration), common({
      y: {ticker: (a, b) => decibelTicks(Math.max(a, 0), b, 5)},
      options: {
        labels: ["t", "station", "P2P"], valueRange: [-1, most + 4],
        stepPlot: true, colors: [color("ink"), color("group")],
        series: {P2P},
        plugins: [over((context, g) => writeCaption(context, "power, dBm", g.getArea()))],
        underlayCallback: (context, area, g) => {
          context.save();
          for (let i = 0; i < accepted.length; ++i) {
            const from = Math.max(accepted[i][0], shown[0]);
            const end = i + 1 < accepted.length ? accepted[i + 1][0] : run.duration;
            const to = Math.min(end, shown[1]);
            if (to <= from) continue;
            const x = g.toDomXCoord(from), top = g.toDomYCoord(accepted[i][1]);
            context.fillStyle = color(STEPS[accepted[i][2]] || "other");
            context.globalAlpha = 0.55;
            context.fillRect(x, top, Math.max(g.toDomXCoord(to) - x, 0.5), area.y + area.h - top);
          }
          context.globalAlpha = 1;
          context.strokeStyle = color("bad");
          context.lineWidth = 2;
          for (const [t, dbm, , good] of run.power) {
            if (good || t < shown[0] || t > shown[1]) continue;
            const x = g.toDomXCoord(t), y = g.toDomYCoord(dbm);
            context.beginPath();
            context.moveTo(x - 4, y - 4); context.lineTo(x + 4, y + 4);
            context.moveTo(x + 4, y - 4); context.lineTo(x - 4, y + 4);
            context.stroke();
          }
          context.restore();
        },
      },
    }));
    view.add(panel, chart, () => {
      // The edges of many steps would leave nothing of their colours.
      const inside = accepted.filter((change) => change[0] >= shown[0] && change[0] <= shown[1]);
      const dense = inside.length * 6 > panel.clientWidth;
      return {series: {station: {strokeWidth: dense ? 0.15 : 1.6}, P2P}};
    });
  }

  function chainsChart(view) {
    const run = view.run;
    const rows = [[0, null, null], ...run.chains];
    const last = rows[rows.length - 1];
    rows.push([run.duration, last[1], last[2]]);
    const panel = makePanel(view, "chains");
    panel.setAttribute("aria-label", "Limits per chain as sent, dBm");
    const values = run.chains.flatMap((row) => row.slice(1)).filter((value) => value !== null);
    view.add(panel, new Dygraph(panel, rows, common({
      y: {ticker: (a, b) => decibelTicks(Math.max(a, 0), b, 5)},
      options: {
        labels: ["t", "chain 0", "chain 1"], stepPlot: true,
        valueRange: [Math.min(10, ...values) - 2, Math.max(20, ...values) + 2],
        colors: [color("lower"), color("group")], strokeWidth: 2,
        series: {"chain 1": {strokePattern: [6, 4]}},
        plugins: [over((context, g) =>
          writeCaption(context, "limits per chain as sent, dBm", g.getArea()))],
      },
    })));
  }

  /** Channels as bars, events and commands as marks; a lane each. */
  function lanesChart(view) {
    const run = view.run;
    const lanes = [];
    for (const kind of ["station", "group"]) {
      if (run[kind].length) lanes.push({kind, stretches: run[kind]});
    }
    lanes.push(...run.lanes);
    view.lanes = lanes;
    const panel = makePanel(view, "lanes", lanes.length * LANE + 26);
    panel.setAttribute("aria-label", "Channels, events and commands");
    const count = lanes.length;
    const ticks = lanes.map((lane, i) => ({v: count - i - 0.5, label: LANE_NAMES[lane.kind]}));
    const draw = (context, g) => {
      const area = g.getArea();
      context.beginPath();
      context.rect(area.x, area.y, area.w, area.h);
      context.clip();
      const height = area.h / count;
      const x = (t) => area.x + (t - shown[0]) / (shown[1] - shown[0]) * area.w;
      let marks = 0;
      lanes.forEach((lane, i) => {
        const top = area.y + i * height;
        marks += lane.stretches ? drawStretches(context, lane, x, top, height)
          : drawMarks(context, lane, x, top, height);
      });
      panel.dataset.marks = marks;
    };
    view.add(panel, new Dygraph(panel, [[0, null], [run.duration, null]], common({
      withTimes: true,
      y: {ticker: () => ticks, drawGrid: false},
      options: {labels: ["t", "-"], valueRange: [0, count], plugins: [over(draw)]},
    })));
    view.lanesPanel = panel;
  }

  function drawStretches(context, lane, x, top, height) {
    let count = 0;
    context.font = font;
    context.textBaseline = "middle";
    for (const stretch of lane.stretches) {
      if (stretch[1] < shown[0] || stretch[0] > shown[1]) continue;
      const from = x(Math.max(stretch[0], shown[0])), to = x(Math.min(stretch[1], shown[1]));
      context.fillStyle = color("ghz" + band(stretch[2]));
      context.fillRect(from, top + 2, Math.max(to - from - 1, 1), height - 4);
      const number = String(channelNumber(stretch[2])), mhz = number + " · " + stretch[2] + " MHz";
      const words = [stretch[3] ? mhz + ", " + stretch[3] + " wide" : mhz, mhz, number]
        .find((text) => context.measureText(text).width + 10 < to - from);
      if (words) {
        context.fillStyle = color("ink");
        context.fillText(words, from + 5, top + height / 2 + 0.5);
      }
      ++count;
    }
    return count;
  }

  const markColor = (lane) => color(lane.kind === "power" ? "upper" : lane.kind);

  /** Draws the marks of the window, at most one of a kind on a pixel; the number of all of them. */
  function drawMarks(context, lane, x, top, height) {
    const first = before(shown[0], lane.t), last = before(shown[1] + 1e-9, lane.t);
    const plain = markColor(lane);
    const middle = top + height / 2;
    let lastPixel = -1;
    context.fillStyle = plain;
    for (let i = first; i < last; ++i) {
      const at = x(lane.t[i]);
      if (!lane.refused.has(i)) {
        if (Math.round(at) === lastPixel) continue;
        lastPixel = Math.round(at);
        if (lane.kind === "poll") context.fillRect(at - 0.5, middle - 3, 1, 6);
        else {
          context.beginPath();
          context.arc(at, middle, 3.4, 0, 2 * Math.PI);
          context.fill();
        }
      }
    }
    context.strokeStyle = color("bad");
    context.lineWidth = 2;
    for (const i of lane.refused) {
      if (i < first || i >= last) continue;
      const at = x(lane.t[i]);
      context.beginPath();
      context.moveTo(at - 4, middle - 4); context.lineTo(at + 4, middle + 4);
      context.moveTo(at + 4, middle - 4); context.lineTo(at - 4, middle + 4);
      context.stroke();
    }
    return last - first;
  }

  // ---- A run -------------------------------------------------------------------------------

  class RunView {
    constructor(run, index) {
      this.run = run;
      this.charts = [];
      this.visible = true;
      this.root = element("section", "run");
      this.root.id = "run-" + (index + 1);
      this.root.append(this.head(), this.legend());
      this.plots = element("div", "plots");
      this.cross = element("div", "cross");
      this.chosen = element("div", "chosen");
      this.cross.hidden = this.chosen.hidden = true;
      this.root.append(this.plots);
      byId("runs").append(this.root);
      this.draw();
      this.plots.append(this.cross, this.chosen);
      listen(this);
      this.watcher = new IntersectionObserver((entries) => {
        this.visible = entries[entries.length - 1].isIntersecting;
        if (this.visible) this.refresh();
      }, {rootMargin: "400px"});
      this.watcher.observe(this.root);
    }

    draw() {
      signalChart(this);
      if (this.run.power.length || this.run.groupPower.length) powerChart(this);
      if (this.run.chains.length) chainsChart(this);
      lanesChart(this);
    }

    /** Draws all charts anew, in the colours of now. */
    redraw() {
      for (const {chart, panel} of this.charts) {
        chart.destroy();
        panel.remove();
      }
      this.charts = [];
      this.draw();
      this.plots.append(this.cross, this.chosen);
    }

    close() {
      this.watcher.disconnect();
      this.charts.forEach(({chart}) => chart.destroy());
      this.root.remove();
    }

    head() {
      const run = this.run;
      const head = element("div", "head");
      head.append(element("h2", "", run.name));
      if (run.label && run.label !== run.name) head.append(element("span", "label", run.label));
      for (const [name, value] of Object.entries(run.settings)) {
        head.append(element("span", "chip", name + " = " + (value === null ? "default" : value)));
      }
      const facts = [elapsed(run.duration)];
      if (run.energy !== null) {
        const energy = run.energy < 1e9 ? Math.round(run.energy).toLocaleString("en")
          : run.energy.toPrecision(3);
        facts.push(energy + " mW·s");
      }
      facts.push(run.changes + (run.changes === 1 ? " change" : " changes"));
      if (run.failed) facts.push(run.failed + " failed");
      head.append(element("span", "facts", facts.join(" · ")));
      return head;
    }

    legend() {
      const key = element("div", "key");
      const entry = (name, words) => {
        const item = element("span");
        const sample = element("i");
        sample.style.background = "var(--" + name + ")";
        item.append(sample, words);
        key.append(item);
      };
      const limits = this.run.thresholds;
      entry("signal", "signal, dBm");
      if (limits.per_chain) entry("band", "limits of a weak signal");
      else if (limits.rssi_upper !== undefined) entry("band", "hysteresis");
      const used = new Set(this.run.power.map((change) => change[2]));
      STEPS.forEach((step, i) => {
        if (used.has(i)) {
          const dbm = limits["dbm_" + step];
          entry(step, step + " step" + (dbm === undefined ? "" : ", " + dbm + " dBm"));
        }
      });
      if (used.has(-1)) entry("other", "other power");
      if (this.run.groupPower.length) entry("group", "P2P power");
      if (this.run.chains.length) {
        entry("lower", "limit of chain 0 as sent");
        entry("group", "limit of chain 1 as sent");
      }
      for (const [name, words] of [[2, "2.4 GHz"], [5, "5 GHz"], [6, "6 GHz"]]) {
        const stretches = this.run.station.concat(this.run.group);
        if (stretches.some((stretch) => band(stretch[2]) === name)) {
          entry("ghz" + name, words);
        }
      }
      return key;
    }

    add(panel, chart, changed) {
      this.charts.push({panel, chart, changed});
    }

    refresh() {
      if (!this.visible) return;
      for (const {chart, changed} of this.charts) {
        chart.updateOptions(Object.assign({dateWindow: shown.slice()}, changed ? changed() : {}));
      }
    }

    /** Time at a distance from the left edge of the plots. */
    timeAt(x) {
      const width = this.plots.clientWidth - AXIS - RIGHT;
      return shown[0] + (x - AXIS) / width * (shown[1] - shown[0]);
    }

    xOf(t) {
      const width = this.plots.clientWidth - AXIS - RIGHT;
      return AXIS + (t - shown[0]) / (shown[1] - shown[0]) * width;
    }

    /** What there is at this time, as elements for the tip. `y` is the distance from the top. */
    describe(t, y) {
      const run = this.run;
      const clock = [elapsed(t, 3), wallText(run, t)].filter(Boolean);
      const parts = [element("p", "time", clock.join(" · "))];
      const at = before(t + 1e-9, run.samples.t) - 1;
      const dbm = at < 0 ? null : run.samples.dbm[at];
      const words = [dbm === null ? "no signal known" : "signal " + dbm + " dBm"];
      const power = inForce(run.power, t, (change) => change[3]);
      if (power) {
        const step = power[2] < 0 ? "" : " (" + STEPS[power[2]] + ")";
        words.push("power " + power[1] + " dBm" + step);
      }
      const group = inForce(run.groupPower, t, (change) => change[3]);
      if (group && run.group.some((stretch) => stretch[0] <= t && t < stretch[1])) {
        words.push("P2P power " + group[1] + " dBm");
      }
      const chains = inForce(run.chains, t);
      if (chains) {
        const limits = chains.slice(1).map((limit) => (limit === null ? "-" : limit));
        words.push("chains " + limits.join(", ") + " dBm");
      }
      parts.push(element("p", "", words.join(" · ")));
      for (const [kind, name] of [["station", "station on "], ["group", "P2P on "]]) {
        const stretch = run[kind].find((one) => one[0] <= t && t < one[1]);
        if (stretch) parts.push(element("p", "", name + channelText(stretch)));
      }
      for (const [lane, index] of this.marksAt(t, y)) {
        const text = elapsed(lane.t[index], 3) + "  " + data.texts[lane.text[index]];
        const mark = element("p", "mark", text);
        mark.style.borderColor = lane.refused.has(index) ? color("bad") : markColor(lane);
        parts.push(mark);
      }
      return parts;
    }

    /** The marks near a time: of the lane at `y`, or above the lanes all power commands. */
    marksAt(t, y) {
      const top = this.lanesPanel.offsetTop;
      const row = Math.floor((y - top) / LANE);
      const wanted = y >= top ? [this.lanes[row]]
        : this.lanes.filter((lane) => lane.kind === "power");
      const reach = NEAR * (shown[1] - shown[0]) / (this.plots.clientWidth - AXIS - RIGHT);
      const found = [];
      for (const lane of wanted) {
        if (!lane || lane.stretches) continue;
        const first = before(t - reach, lane.t), last = before(t + reach, lane.t);
        for (let i = first; i < last; ++i) found.push([lane, i]);
      }
      found.sort((a, b) => Math.abs(a[0].t[a[1]] - t) - Math.abs(b[0].t[b[1]] - t));
      return found.slice(0, MOST_TIPS).sort((a, b) => a[0].t[a[1]] - b[0].t[b[1]]);
    }
  }

  // ---- Pointer and keys --------------------------------------------------------------------

  function hideTip() {
    byId("tip").hidden = true;
    for (const view of views) view.cross.hidden = true;
  }

  function showTip(view, event, x, y) {
    const t = view.timeAt(x);
    if (x < AXIS || t > shown[1]) {
      hideTip();
      return;
    }
    for (const other of views) {
      other.cross.hidden = false;
      other.cross.style.left = other.xOf(t) + "px";
    }
    const tip = byId("tip");
    tip.replaceChildren(...view.describe(t, y));
    tip.hidden = false;
    const box = tip.getBoundingClientRect();
    const fits = event.clientX + 18 + box.width < innerWidth;
    const left = fits ? event.clientX + 18 : event.clientX - 18 - box.width;
    tip.style.left = Math.max(left, 4) + "px";
    tip.style.top = Math.max(Math.min(event.clientY + 16, innerHeight - box.height - 8), 4) + "px";
  }

  function listen(view) {
    const plots = view.plots;
    let drag = null;
    const place = (event) => {
      const box = plots.getBoundingClientRect();
      return [event.clientX - box.left, event.clientY - box.top];
    };
    plots.addEventListener("pointerdown", (event) => {
      if (event.button > 1) return;
      const [x] = place(event);
      const moving = event.shiftKey || event.button === 1 || event.pointerType === "touch";
      drag = {x, moving, from: shown.slice()};
      plots.setPointerCapture(event.pointerId);
      plots.classList.toggle("moving", drag.moving);
      if (event.pointerType !== "touch") event.preventDefault();
    });
    plots.addEventListener("pointermove", (event) => {
      const [x, y] = place(event);
      if (!drag) {
        showTip(view, event, x, y);
        return;
      }
      hideTip();
      if (drag.moving) {
        const width = plots.clientWidth - AXIS - RIGHT;
        const by = (drag.x - x) / width * (drag.from[1] - drag.from[0]);
        show(drag.from[0] + by, drag.from[1] + by);
      } else {
        const edge = Math.min(Math.max(x, AXIS), plots.clientWidth - RIGHT);
        view.chosen.hidden = false;
        view.chosen.style.left = Math.min(drag.x, edge) + "px";
        view.chosen.style.width = Math.abs(edge - drag.x) + "px";
      }
    });
    const end = (event) => {
      if (!drag) return;
      const [x] = place(event);
      const done = drag;
      drag = null;
      view.chosen.hidden = true;
      plots.classList.remove("moving");
      if (event.type === "pointerup" && !done.moving && Math.abs(x - done.x) > 4) {
        const [a, b] = [view.timeAt(done.x), view.timeAt(x)].sort((one, other) => one - other);
        show(Math.max(a, shown[0]), Math.min(b, shown[1]));
      }
    };
    plots.addEventListener("pointerup", end);
    plots.addEventListener("pointercancel", end);
    plots.addEventListener("pointerleave", hideTip);
    plots.addEventListener("dblclick", actions.all);
    plots.addEventListener("wheel", (event) => {
      if (event.ctrlKey || event.metaKey) {
        event.preventDefault();
        zoom(Math.exp(event.deltaY / 300), view.timeAt(place(event)[0]));
      } else if (Math.abs(event.deltaX) > Math.abs(event.deltaY)) {
        event.preventDefault();
        move(event.deltaX / plots.clientWidth);
      }
    }, {passive: false});
  }

  /** The whole time in small, with the part that is shown. */
  const overview = {
    chart: null,
    part: element("div", "part"),
    make(run) {
      const panel = byId("overview");
      if (this.chart) this.chart.destroy();
      this.chart = new Dygraph(panel, signalRows(run.samples, ...whole), Object.assign(common({
        y: {drawAxis: true, ticker: () => [], drawGrid: false},
        options: {
          labels: ["t", "dBm"], colors: [color("signal")], strokeWidth: 1,
        },
      }), {dateWindow: whole.slice()}));
      panel.append(this.part);
    },
    refresh() {
      const share = (t) => (t - whole[0]) / (whole[1] - whole[0]);
      const width = byId("overview").clientWidth - AXIS - RIGHT;
      this.part.style.left = AXIS + share(shown[0]) * width + "px";
      this.part.style.width = Math.max((share(shown[1]) - share(shown[0])) * width, 2) + "px";
    },
    listen() {
      const panel = byId("overview");
      const put = (event) => {
        const box = panel.getBoundingClientRect();
        const share = (event.clientX - box.left - AXIS) / (box.width - AXIS - RIGHT);
        const half = (shown[1] - shown[0]) / 2;
        const at = whole[0] + share * (whole[1] - whole[0]);
        show(at - half, at + half);
      };
      panel.addEventListener("pointerdown", (event) => {
        panel.setPointerCapture(event.pointerId);
        put(event);
      });
      panel.addEventListener("pointermove", (event) => {
        if (event.buttons) put(event);
      });
      panel.addEventListener("dblclick", actions.all);
    },
  };

  /** Puts these runs on the page in the place of those that are there. */
  function showRuns(runs) {
    views.forEach((view) => view.close());
    views = [];
    byId("bar").hidden = !runs.length;
    if (!runs.length) return;
    longestRun = Math.max(1, ...runs.map((run) => run.duration));
    // A little more than all, so that the first and the last mark are whole.
    whole = [-0.008 * longestRun, 1.008 * longestRun];
    shown = whole.slice();
    overview.make(runs[0]);
    runs.forEach((run, index) => views.push(new RunView(run, index)));
    show(...whole);
  }

  function start() {
    readStyle();
    overview.listen();
    for (const button of document.querySelectorAll("#tools button")) {
      button.addEventListener("click", actions[button.dataset.do]);
    }
    document.addEventListener("keydown", (event) => {
      const action = keys[event.key];
      if (!action || event.ctrlKey || event.altKey || event.metaKey || !views.length ||
          event.target.closest("select, input")) return;
      event.preventDefault();
      actions[action]();
    });
    matchMedia("(prefers-color-scheme: dark)").addEventListener("change", () => {
      readStyle();
      if (!views.length) return;
      overview.make(views[0].run);
      views.forEach((view) => view.redraw());
    });
    if (data.sweep) return;  // sweep.js chooses
    showRuns(data.runs);
    const asked = /^#t=([\d.]+)-([\d.]+)$/.exec(location.hash);
    if (asked) show(Number(asked[1]), Number(asked[2]));
  }

  // For sweep.js, and for whoever looks from the console.
  window.corvidReport = {
    data, showRuns, element,
    shown: () => shown.slice(),
    rows: (index) => signalRows(data.runs[index].samples, ...shown),
  };
  start();
})();
