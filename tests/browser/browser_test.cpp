// SPDX-License-Identifier: MIT
//
// The pages of tavor-run as a browser shows them: in both colour schemes, in a narrow and in a wide
// window, on paper, with texts from outside that would like to be more than text. With TAVOR_SHOTS
// in the environment pictures of the pages are left in that folder.
#include "tests/cli/run_fixture.h"
#include "tools/common/registry.h"

namespace {

using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::Ge;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr int NARROW = 320;
constexpr int WIDE = 1280;
constexpr double LEAST_CONTRAST = 4.5; // WCAG 2, level AA

// Breaks out where text is not escaped.
constexpr const char *HOSTILE =
    "</pre></td></table><script>hacked=true</script><img_src=x_onerror=hacked=true>\"'&lt;";

std::string with_blanks(std::string text)
{
    std::replace(text.begin(), text.end(), '_', ' ');
    return text;
}

class pages : public run_test {
protected:
    void SetUp() override
    {
        for (const std::string name : {"chromium", "chromium-browser", "google-chrome"}) {
            if (tools::run_process({.arguments = {name, "--version"}}).exited_with(0)) {
                browser = name;
                return;
            }
        }
        GTEST_SKIP() << "no chromium is installed: no page was looked at";
    }

    // What the browser prints with these arguments, without network and state of its own.
    tools::process_result browse(std::vector<std::string> arguments, bool is_dark = false) const
    {
        arguments.insert(
            arguments.begin(),
            {browser, "--headless", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
             "--no-first-run", "--hide-scrollbars", "--user-data-dir=" + file("profile"),
             std::string("--blink-settings=preferredColorScheme=") + (is_dark ? "0" : "1")});
        tools::process_options options{.arguments = arguments};
        options.timeout = std::chrono::seconds(100);
        return tools::run_process(options);
    }

    // All kinds of results, known and new, with hostile texts.
    std::string run_page()
    {
        script = "fail=kel_role_basic:known fail=kel_tlv_alloc:old";
        run({"--out", "jsonl:" + file("base.jsonl")});
        script = std::string("fail=kel_role_basic:known fail=kel_role_always:") + HOSTILE +
                 " crash=kel_tlv_free print=kel_buf_append_self:" + HOSTILE +
                 " ignore=kel_buf_append fail=kel_packet_append:" + std::string(200, 'x');
        run({"--baseline", file("base.jsonl"), "--out", "html:" + file("run.html"), "--out",
             "jsonl:" + file("run.jsonl")});
        return file("run.html");
    }

    std::string log_page() const
    {
        std::ofstream log(file("console.log"));
        log << "kel_role_basic                           \n"
            << with_blanks(HOSTILE) << "\x1b[2J\xff\nFAIL : " << with_blanks(HOSTILE).substr(0, 80)
            << "\n";
        log.close();
        tavor_run({"report", file("console.log"), "kel_role", "--out", "html:" + file("log.html")});
        return file("log.html");
    }

    std::string compare_page() const
    {
        tavor_run({"compare", file("base.jsonl"), "now <b>=" + file("run.jsonl"), "--out",
                   "html:" + file("compare.html")});
        return file("compare.html");
    }

    std::string history_page() const
    {
        fs::create_directory(file("reports"));
        for (int run = 0; run < 100; run++) {
            const std::string from = content_of(file(run % 7 == 3 ? "run.jsonl" : "base.jsonl"));
            json first = json::parse(lines_of(from)[0]);
            first["started"] = "2026-11-" + std::to_string(10 + run / 10) + "T0" +
                               std::to_string(run % 10) + ":00:00Z";
            first["library"]["build_id"] = std::string(12, static_cast<char>('a' + run / 40));
            first["host"] = run % 2 == 0 ? "board-1" : "board <b>2";
            std::ofstream(file("reports/" + std::to_string(run) + ".jsonl"))
                << first.dump() << from.substr(from.find('\n'));
        }
        tavor_run({"history", file("reports"), "--out", "html:" + file("history.html")});
        return file("history.html");
    }

    std::map<std::string, std::string> all_pages()
    {
        return {{"run", run_page()},
                {"log", log_page()},
                {"compare", compare_page()},
                {"history", history_page()}};
    }

    // Measurements of each page at both widths, as measure.js makes them.
    std::map<std::string, json> measured(bool is_dark)
    {
        const std::string watch = "<script>var problems=[];addEventListener('error',"
                                  "event=>problems.push(event.message))</script>";
        std::ofstream harness(file("harness.html"));
        harness << "<!DOCTYPE html><html><head><meta charset=\"utf-8\"></head><body>\n";
        for (const auto &[name, path] : all_pages()) {
            std::string page = content_of(path);
            page.insert(page.find("<head>") + 6, watch);
            for (const int width : {NARROW, WIDE}) {
                harness << "<iframe id=\"" << name << "-" << width << "\" style=\"width:" << width
                        << "px;height:800px;border:0\" srcdoc=\"" << quoted(page)
                        << "\"></iframe>\n";
            }
        }
        harness << "<script>" << content_of(TAVOR_SOURCE_DIR "/tests/browser/measure.js")
                << "</script></body></html>\n";
        harness.close();
        const auto done = browse({"--dump-dom", "file://" + file("harness.html")}, is_dark);
        const std::size_t start = done.output.find("RESULTS{");
        const std::size_t end = done.output.find("}END");
        if (start == std::string::npos || end == std::string::npos) {
            ADD_FAILURE() << "the browser measured nothing: " << done.errors;
            return {};
        }
        return json::parse(plain(done.output.substr(start + 7, end - start - 6)))
            .get<std::map<std::string, json>>();
    }

    // How many sheets a page is on paper.
    int sheets(const std::string &path) const
    {
        browse({"--print-to-pdf=" + file("paper.pdf"), "--no-pdf-header-footer", "file://" + path});
        const std::string paper = content_of(file("paper.pdf"));
        return count_of(paper, "/Type /Page\n");
    }

    std::string browser;

private:
    // For an attribute in double quotes.
    static std::string quoted(const std::string &text)
    {
        std::string result;
        for (const char each : text) {
            result += each == '&' ? "&amp;" : each == '"' ? "&quot;" : std::string(1, each);
        }
        return result;
    }

    // Text as the browser writes it out.
    static std::string plain(std::string text)
    {
        for (const auto &[code, character] : std::vector<std::pair<std::string, std::string>>{
                 {"&lt;", "<"}, {"&gt;", ">"}, {"&nbsp;", " "}, {"&amp;", "&"}}) {
            for (std::size_t at = text.find(code); at != std::string::npos;
                 at = text.find(code, at + 1)) {
                text.replace(at, code.size(), character);
            }
        }
        return text;
    }
};

void expect_sound(const std::string &name, const json &page)
{
    SCOPED_TRACE(name);
    EXPECT_LE(page.at("overflowClosed"), 0) << "it scrolls sideways";
    EXPECT_LE(page.at("overflowOpen"), 0) << "it scrolls sideways with all groups open";
    EXPECT_THAT(page.at("problems"), IsEmpty());
    EXPECT_FALSE(page.at("hacked"));
    EXPECT_EQ(page.at("resources"), 0);
    EXPECT_EQ(page.at("foreign"), 0);
    EXPECT_EQ(page.at("headersWithoutScope"), 0);
    EXPECT_EQ(page.at("fieldsWithoutLabel"), 0);
    EXPECT_EQ(page.at("unreachable"), 0);
    EXPECT_EQ(page.at("deadLinks"), 0);
    EXPECT_FALSE(page.at("contrasts").empty());
    for (const auto &[element, ratio] : page.at("contrasts").items()) {
        EXPECT_GE(ratio, LEAST_CONTRAST) << element;
    }
}

TEST_F(pages, are_sound_in_both_schemes_and_widths)
{
    const auto all = static_cast<int>(tools::all_cases().size());
    for (const bool is_dark : {false, true}) {
        const std::map<std::string, json> found = measured(is_dark);
        ASSERT_EQ(found.size(), 8U);
        for (const auto &[name, page] : found) {
            expect_sound(name + (is_dark ? ", dark" : ", light"), page);
            EXPECT_EQ(page.at("dark"), is_dark);
            EXPECT_EQ(page.at("width"), name.ends_with(std::to_string(NARROW)) ? NARROW : WIDE);
        }
        const json &run_page = found.at("run-" + std::to_string(NARROW));
        EXPECT_EQ(run_page.at("rows"), all);
        EXPECT_THAT(run_page.at("filtered"), ElementsAre("kel_role_always", "kel_role_basic"));
        EXPECT_EQ(run_page.at("unfiltered"), all);
        EXPECT_THAT(std::string(run_page.at("title")), HasSubstr(" failed"));
    }
}

TEST_F(pages, are_whole_on_paper)
{
    const std::string page = run_page();
    std::string open = content_of(page);
    for (std::size_t at = open.find("<details>"); at != std::string::npos;
         at = open.find("<details>", at)) {
        open.replace(at, 9, "<details open>");
    }
    std::ofstream(file("open.html")) << open;
    const int whole = sheets(file("open.html"));
    EXPECT_GT(whole, 5);
    EXPECT_EQ(sheets(page), whole) << "closed groups are not on paper";
}

TEST_F(pages, are_small)
{
    for (const auto &[name, path] : all_pages()) {
        EXPECT_LT(fs::file_size(path), 400'000U) << name;
    }
}

TEST_F(pages, have_their_pictures_taken_when_wanted)
{
    const char *const shots = std::getenv("TAVOR_SHOTS");
    if (shots == nullptr) GTEST_SKIP() << "no TAVOR_SHOTS in the environment";
    for (const auto &[name, path] : all_pages()) {
        for (const bool is_dark : {false, true}) {
            const std::string shot = fs::path(shots) / (name + (is_dark ? "-dark" : "-light"));
            browse({"--screenshot=" + shot + ".png", "--window-size=1280,1600", "file://" + path},
                   is_dark);
            EXPECT_TRUE(fs::exists(shot + ".png"));
        }
        // Windows are never so narrow: a frame is.
        std::ofstream(file("narrow.html"))
            << "<body style=\"margin:0\"><iframe src=\"" << path
            << "\" style=\"width:320px;height:1600px;border:0\"></iframe></body>";
        const std::string shot = fs::path(shots) / (name + "-narrow.png");
        browse({"--screenshot=" + shot, "--window-size=500,1600", "file://" + file("narrow.html")});
        EXPECT_TRUE(fs::exists(shot));
    }
}

} // namespace
