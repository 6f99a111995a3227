// SPDX-License-Identifier: MIT
//
// Measures pages in frames of their own: what they are, and where they break their word.
"use strict";

function luminance(colour) {
    const parts = colour.match(/[\d.]+/g).slice(0, 3).map(part => {
        const share = part / 255;
        return share <= 0.04045 ? share / 12.92 : ((share + 0.055) / 1.055) ** 2.4;
    });
    return 0.2126 * parts[0] + 0.7152 * parts[1] + 0.0722 * parts[2];
}

function contrast(one, other) {
    const [darker, lighter] = [luminance(one), luminance(other)].sort((a, b) => a - b);
    return (lighter + 0.05) / (darker + 0.05);
}

const isTransparent = colour => /, 0\)$/.test(colour) || colour === "transparent";

function background(element, view) {
    for (let each = element; each; each = each.parentElement) {
        const colour = view.getComputedStyle(each).backgroundColor;
        if (!isTransparent(colour)) return colour;
    }
    return "rgb(255, 255, 255)";
}

function textContrasts(view) {
    const ratios = {};
    for (const element of view.document.body.querySelectorAll("*")) {
        const hasText = [...element.childNodes].some(
            node => node.nodeType === Node.TEXT_NODE && node.data.trim() !== "");
        if (!hasText || element.getClientRects().length === 0 || element.localName === "script")
            continue;
        const style = view.getComputedStyle(element);
        const name = element.localName + "." + element.className;
        const ratio = contrast(style.color, background(element, view));
        ratios[name] = Math.min(ratios[name] ?? Infinity, ratio);
    }
    return ratios;
}

function overflow(view) {
    return view.document.documentElement.scrollWidth - view.innerWidth;
}

function visibleRows(view) {
    return [...view.document.querySelectorAll("tr.case")].filter(
        row => row.getClientRects().length > 0).map(row => row.id);
}

function tryFilter(view, name, verdict) {
    const [text, choice] = [view.document.getElementById("name"),
                            view.document.getElementById("verdict")];
    if (!text) return null;
    text.value = name;
    text.dispatchEvent(new Event("input"));
    choice.value = verdict;
    choice.dispatchEvent(new Event("change"));
    return visibleRows(view);
}

function measure(frame) {
    const view = frame.contentWindow, page = view.document;
    const found = {
        title: page.title,
        width: view.innerWidth,
        dark: view.matchMedia("(prefers-color-scheme: dark)").matches,
        problems: view.problems,
        hacked: view.hacked === true,
        resources: view.performance.getEntriesByType("resource").length,
        foreign: page.querySelectorAll("img,iframe,object,embed,link,video,audio,base").length,
        overflowClosed: overflow(view),
    };
    const closed = [...page.querySelectorAll("details:not([open])")];
    for (const each of closed) each.open = true;
    found.overflowOpen = overflow(view);
    found.contrasts = textContrasts(view);
    found.rows = page.querySelectorAll("tr.case").length;
    found.headersWithoutScope = page.querySelectorAll("th:not([scope])").length;
    found.fieldsWithoutLabel =
        [...page.querySelectorAll("input,select")].filter(each => each.labels.length === 0).length;
    found.unreachable = [...page.querySelectorAll("summary,a,input,select")].filter(
        each => each.tabIndex < 0).length;
    found.deadLinks = [...page.querySelectorAll("a[href^='#']")].filter(
        each => !page.getElementById(each.getAttribute("href").slice(1))).length;
    found.filtered = tryFilter(view, "kel_role", "fail");
    found.unfiltered = (tryFilter(view, "", "") ?? []).length;
    return found;
}

addEventListener("load", () => {
    const results = {};
    for (const frame of document.querySelectorAll("iframe")) results[frame.id] = measure(frame);
    document.body.replaceChildren();
    document.body.textContent = "RESULTS" + JSON.stringify(results) + "END";
});
