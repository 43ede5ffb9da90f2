"use strict";
// Heat map and front of a sweep. A point is a combination of settings; choosing one (#point-N)
// shows its runs below.
(function () {
  const {data, showRuns, element} = window.corvidReport;
  const sweep = data.sweep;
  const byId = (id) => document.getElementById(id);
  const names = Object.keys(sweep.settings);
  // A setting of one value has no side of the heat map.
  const varied = names.filter((name) => sweep.settings[name].length > 1);
  const onFront = new Set(sweep.front.points);
  // Which setting goes right and which down, what the others are, whose rows are shown.
  const chosen = {
    measure: sweep.front.measures[0], across: varied[0] || names[0], down: varied[1] || null,
    trace: "", others: {}, point: -1,
  };

  const find = (key) => sweep.measures.find((measure) => measure.key === key);

  function titleOf(key) {
    const measure = find(key);
    if (!measure) return key;
    return measure.unit ? measure.title + ", " + measure.unit : measure.title;
  }

  function number(value) {
    if (value === null || value === undefined) return "-";
    const size = Math.abs(value);
    if (Number.isInteger(value)) return String(value);
    return String(Number(value.toFixed(size >= 1000 ? 0 : size >= 10 ? 1 : 2)));
  }

  function valueOf(point, key) {
    const measures = chosen.trace ? point.byTrace[chosen.trace] || {} : point.measures;
    const value = measures[key];
    return value === undefined ? null : value;
  }

  function words(point) {
    return names.map((name, i) => name + " = " + point.values[i]).join(", ");
  }

  // ---- Choices -----------------------------------------------------------------------------

  function select(label, choices, value, changed) {
    const box = element("label", "", label + " ");
    const list = element("select");
    for (const [key, text] of choices) {
      const option = element("option", "", text);
      option.value = key;
      option.selected = key === value;
      list.append(option);
    }
    list.addEventListener("change", () => changed(list.value));
    box.append(list);
    byId("choice").append(box);
  }

  function drawChoices() {
    byId("choice").replaceChildren();
    select("Measure", sweep.measures.map((measure) => [measure.key, titleOf(measure.key)]),
      chosen.measure, (key) => { chosen.measure = key; drawHeat(); });
    if (sweep.traces.length > 1) {
      const traces = sweep.traces.map((trace, i) => [trace, sweep.traceNames[i]]);
      select("Trace", [["", "all"], ...traces], chosen.trace, (trace) => {
        chosen.trace = trace;
        drawHeat();
        drawFront();
        showPoint();
      });
    }
    if (varied.length > 2) {
      const all = varied.map((name) => [name, name]);
      const turn = (one, other) => (name) => {
        if (chosen[other] === name) chosen[other] = chosen[one];
        chosen[one] = name;
        drawChoices();
        drawHeat();
      };
      select("Right", all, chosen.across, turn("across", "down"));
      select("Down", all, chosen.down, turn("down", "across"));
      for (const name of varied) {
        if (name === chosen.across || name === chosen.down) continue;
        select(name, sweep.settings[name].map((value) => [value, value]), chosen.others[name],
          (value) => { chosen.others[name] = value; drawHeat(); });
      }
    }
  }

  // ---- Heat map ----------------------------------------------------------------------------

  /** A sweep may have more points than a function may have arguments. */
  function extent(values) {
    let low = Infinity, high = -Infinity;
    for (const value of values) {
      if (value < low) low = value;
      if (value > high) high = value;
    }
    return {low, high};
  }

  function drawHeat() {
    byId("heat-title").textContent = titleOf(chosen.measure);
    const known = sweep.points.map((point) => valueOf(point, chosen.measure))
      .filter((value) => value !== null);
    const {low, high} = extent(known);
    const table = element("table", "heat");
    const head = table.createTHead().insertRow();
    const rows = chosen.down ? sweep.settings[chosen.down] : [""];
    const corner = element("th", "corner", chosen.across + " →");
    if (chosen.down) corner.append(element("br"), chosen.down + " ↓");
    head.append(corner);
    for (const value of sweep.settings[chosen.across]) head.append(element("th", "", value));
    const body = table.createTBody();
    for (const down of rows) {
      const row = body.insertRow();
      row.append(element("th", "", down));
      for (const across of sweep.settings[chosen.across]) {
        const cell = row.insertCell();
        const index = pointAt(across, down);
        if (index >= 0) cell.append(heatButton(index, low, high));
      }
    }
    byId("heat").replaceChildren(table);
  }

  /** The number of the point with these two values, and the chosen ones of the other settings. */
  function pointAt(across, down) {
    return sweep.points.findIndex((point) => names.every((name, i) => {
      const wanted = name === chosen.across ? across : name === chosen.down ? down
        : chosen.others[name];
      return String(point.values[i]) === String(wanted);
    }));
  }

  function heatButton(index, low, high) {
    const point = sweep.points[index];
    const value = valueOf(point, chosen.measure);
    const share = value === null || high === low ? 0 : (value - low) / (high - low);
    const button = element("button", onFront.has(index) ? "on-front" : "", number(value));
    button.type = "button";
    button.title = words(point) + (onFront.has(index) ? " (on the front)" : "");
    button.style.background = "color-mix(in oklab, var(--heat) " + Math.round(4 + share * 62) +
      "%, var(--card))";
    button.dataset.point = index;
    button.setAttribute("aria-pressed", String(index === chosen.point));
    button.addEventListener("click", () => { location.hash = "point-" + index; });
    return button;
  }

  // ---- Front -------------------------------------------------------------------------------

  function svg(name, attributes, text) {
    const made = document.createElementNS("http://www.w3.org/2000/svg", name);
    for (const [key, value] of Object.entries(attributes)) made.setAttribute(key, value);
    if (text !== undefined) made.textContent = text;
    return made;
  }

  function scale(values, from, to) {
    const {low, high} = extent(values);
    const room = (high - low || Math.abs(high) || 1) * 0.06;
    const a = low - room, b = high + room;
    const at = (value) => from + (value - a) / (b - a) * (to - from);
    const rough = (b - a) / 6;
    const power = Math.pow(10, Math.floor(Math.log10(rough)));
    const step = [1, 2, 5, 10].map((k) => k * power).find((size) => size >= rough);
    const ticks = [];
    for (let k = Math.ceil(a / step); k * step <= b; ++k) {
      ticks.push(Number((k * step).toPrecision(12)));
    }
    return {at, ticks};
  }

  function drawFront() {
    const [right, up] = sweep.front.measures;
    byId("front-title").textContent = titleOf(up) + " against " + titleOf(right) +
      (chosen.trace ? "" : ": the front");
    const drawn = sweep.points.map((point, index) => ({
      point, index, x: valueOf(point, right), y: valueOf(point, up),
    })).filter((one) => one.x !== null && one.y !== null);
    const width = Math.max(byId("front").clientWidth, 320), height = Math.min(width * 0.6, 420);
    const picture = svg("svg", {width, height, role: "img", "aria-label": "Front"});
    byId("front").replaceChildren(picture);
    if (!drawn.length) return;
    const left = 64, end = width - 14, top = 10, bottom = height - 48;
    const x = scale(drawn.map((one) => one.x), left, end);
    const y = scale(drawn.map((one) => one.y), bottom, top);
    for (const tick of x.ticks) {
      const at = x.at(tick);
      picture.append(svg("line", {class: "grid", x1: at, x2: at, y1: top, y2: bottom}),
        svg("text", {x: at, y: bottom + 18, "text-anchor": "middle"}, number(tick)));
    }
    for (const tick of y.ticks) {
      const at = y.at(tick);
      picture.append(svg("line", {class: "grid", x1: left, x2: end, y1: at, y2: at}),
        svg("text", {x: left - 7, y: at + 4, "text-anchor": "end"}, number(tick)));
    }
    picture.append(
      svg("path", {class: "axis", d: `M${left} ${top}V${bottom}H${end}`, fill: "none"}),
      svg("text", {x: end, y: height - 8, "text-anchor": "end"}, titleOf(right) + " →"));
    // The front is that of all traces; for a single one its points need not lie on a line.
    if (!chosen.trace) {
      const line = sweep.front.points.map((index) => drawn.find((one) => one.index === index))
        .filter(Boolean).map((one) => x.at(one.x) + " " + y.at(one.y));
      picture.append(svg("path", {class: "line", d: "M" + line.join("L")}));
    }
    drawn.sort((a, b) => onFront.has(a.index) - onFront.has(b.index));
    for (const one of drawn) {
      const link = svg("a", {href: "#point-" + one.index, "data-point": one.index});
      if (onFront.has(one.index)) link.classList.add("on-front");
      if (one.index === chosen.point) link.classList.add("chosen-point");
      const circle = svg("circle", {cx: x.at(one.x), cy: y.at(one.y),
        r: onFront.has(one.index) ? 6 : 4});
      circle.append(svg("title", {}, words(one.point) + "\n" + titleOf(right) + ": " +
        number(one.x) + "\n" + titleOf(up) + ": " + number(one.y)));
      link.append(circle);
      picture.append(link);
    }
  }

  /** A word as a shell reads it. */
  function quoted(text) {
    return /^[\w@%+=:,./-]+$/.test(text) ? text : "'" + text.replaceAll("'", "'\\''") + "'";
  }

  // ---- A point -----------------------------------------------------------------------------

  function showPoint() {
    const point = sweep.points[chosen.point];
    const box = byId("point");
    const title = element("h2", "", "Point " + chosen.point +
      (onFront.has(chosen.point) ? ", on the front" : ""));
    const settings = element("p");
    names.forEach((name, i) => {
      settings.append(element("span", "chip", name + " = " + point.values[i]), " ");
    });
    const facts = sweep.front.measures.map(
      (key) => titleOf(key) + ": " + number(valueOf(point, key)));
    box.replaceChildren(title, settings, element("p", "facts", facts.join(" · ")));
    let runs = point.runs.map((index) => data.runs[index]);
    if (chosen.trace) {
      const name = sweep.traceNames[sweep.traces.indexOf(chosen.trace)];
      runs = runs.filter((run) => run.name === name);
    }
    if (!runs.length) {
      const trace = chosen.trace || sweep.traces[0];
      const sets = names.map((name, i) => "--set " + quoted(name + "=" + point.values[i]))
        .join(" ");
      box.append(element("p", "facts", "Its runs are not in this page. This makes one:"));
      const line = element("p");
      line.append(element("code", "", "corvid-trace replay " + quoted(trace) + " " + sets + " -o point-" +
        chosen.point + ".result"));
      box.append(line);
    }
    showRuns(runs);
  }

  function choose(index) {
    if (index === chosen.point) return;
    chosen.point = index;
    names.forEach((name, i) => { chosen.others[name] = String(sweep.points[index].values[i]); });
    drawChoices();
    drawHeat();
    drawFront();
    showPoint();
  }

  function followHash() {
    const asked = /^#point-(\d+)$/.exec(location.hash);
    const index = asked ? Number(asked[1]) : -1;
    if (index >= 0 && index < sweep.points.length) choose(index);
    else if (chosen.point < 0 && sweep.points.length) choose(sweep.front.points[0] || 0);
  }

  addEventListener("hashchange", followHash);
  addEventListener("resize", drawFront);
  followHash();
})();
