// SPDX-License-Identifier: MIT
#include "tools/tavor-run/formats/markup.h"

#include "tools/common/printable.h"

namespace tavor_run {

namespace {

// Both schemes keep a contrast of 4.5 and more. Tables scroll in themselves, never the page.
constexpr std::string_view STYLE = R"(<meta name="viewport" content="width=device-width">
<style>
:root { color-scheme: light dark; --ink: #1b1b1b; --paper: #ffffff; --line: #c8c8c8;
        --good: #17692a; --quiet: #5a5f66; --bad: #b3161b; --lost: #7a1a7a; --link: #0b57d0; }
@media (prefers-color-scheme: dark) {
    :root { --ink: #e8e8e8; --paper: #16181c; --line: #4a4f57; --good: #6fcf7f; --quiet: #a8adb5;
            --bad: #ff8f8f; --lost: #e2a0e2; --link: #9cc0ff; }
}
body { font: 1rem/1.4 sans-serif; margin: 1rem; color: var(--ink); background: var(--paper);
       overflow-wrap: break-word; }
h1, h2, p, pre, summary, td:last-child, td.text { overflow-wrap: anywhere; }
a { color: var(--link); }
.wide { overflow-x: auto; }
table { border-collapse: collapse; }
th, td { text-align: left; padding: 0.2rem 0.8rem 0.2rem 0; border-bottom: 1px solid var(--line);
         vertical-align: top; min-width: 4rem; }
td.time { text-align: right; }
pre, .runs { font-family: monospace; }
pre { white-space: pre-wrap; margin: 0.3rem 0; }
.bar { display: flex; height: 0.8rem; margin: 0.5rem 0; print-color-adjust: exact; }
.bar span { background: currentColor; min-width: 0.3rem; }
.label { display: none; }
#filter { margin: 1rem 0; }
[hidden] { display: none !important; }
summary { cursor: pointer; padding: 0.2rem 0; }
svg { max-width: 100%; color: var(--ink); }
.pass { color: var(--good); }
.ignore, .not_run, .GOOD, .place { color: var(--quiet); }
.fail, .NEW, .KNOWN { color: var(--bad); font-weight: bold; }
.crash, .hang, .flood, .damaged, .unended, .unseen, .LOST, .FLAKY { color: var(--lost); font-weight: bold; }
.FIXED { color: var(--good); font-weight: bold; }
@media (max-width: 40rem) {
    .stacks thead { position: absolute; left: -100vw; }
    .stacks tr { display: block; border-bottom: 1px solid var(--line); padding: 0.3rem 0; }
    .stacks td, .stacks th { display: block; border: 0; padding: 0; }
    td.time { text-align: left; }
    .case td:first-child::before { content: "number "; }
    .case td.time:not(:empty)::before { content: "seconds "; }
    .label { display: inline-block; min-width: 6rem; color: var(--quiet); }
    body { overflow-wrap: anywhere; }
}
@media print {
    :root { --ink: #000000; --paper: #ffffff; --good: #17692a; --quiet: #5a5f66; --bad: #b3161b;
            --lost: #7a1a7a; --link: #000000; }
    details::details-content { content-visibility: visible; }
    tr { break-inside: avoid; }
}
</style>
)";

} // namespace

std::string html_head(std::string_view title)
{
    const std::string text = escaped(title);
    return "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n<title>" + text +
           "</title>\n" + std::string(STYLE) + "</head>\n<body>\n<h1>" + text + "</h1>\n";
}

std::string bar_of(const std::vector<bar_part> &parts)
{
    std::string bar = "<div class=\"bar\" aria-hidden=\"true\">";
    for (const bar_part &each : parts) {
        if (each.count == 0) continue;
        bar += "<span class=\"" + std::string(each.style) +
               "\" style=\"flex-grow:" + std::to_string(each.count) + "\"></span>";
    }
    return bar + "</div>\n";
}

std::string escaped(std::string_view text)
{
    std::string result;
    for (const char character : tools::printable(text, "\n\t")) {
        switch (character) {
        case '&':
            result += "&amp;";
            break;
        case '<':
            result += "&lt;";
            break;
        case '>':
            result += "&gt;";
            break;
        case '"':
            result += "&quot;";
            break;
        default:
            result += character;
        }
    }
    return result;
}

} // namespace tavor_run
