#include "collector/research/static_files.h"

#include <algorithm>
#include <array>
#include <utility>

#include "embedded/LICENSE.h"
#include "embedded/research/page/chart.js.h"
#include "embedded/research/page/dialogs.js.h"
#include "embedded/research/page/format.js.h"
#include "embedded/research/page/grid.js.h"
#include "embedded/research/page/index.html.h"
#include "embedded/research/page/page.css.h"
#include "embedded/research/page/page.js.h"
#include "embedded/research/page/participant.js.h"
#include "embedded/research/page/problems.js.h"
#include "embedded/research/page/server.js.h"
#include "embedded/uPlot.iife.min.js.h"
#include "embedded/uPlot.min.css.h"

namespace tarvex::collector {
namespace {

constexpr std::string_view html = "text/html; charset=utf-8";
constexpr std::string_view css = "text/css; charset=utf-8";
constexpr std::string_view script = "text/javascript; charset=utf-8";
constexpr std::string_view text = "text/plain; charset=utf-8";

constexpr std::array files{
    std::pair<std::string_view, StaticFile>{"/", {html, embedded::research_page_index_html}},
    std::pair<std::string_view, StaticFile>{"/page.css", {css, embedded::research_page_page_css}},
    std::pair<std::string_view, StaticFile>{"/page.js", {script, embedded::research_page_page_js}},
    std::pair<std::string_view, StaticFile>{"/chart.js", {script, embedded::research_page_chart_js}},
    std::pair<std::string_view, StaticFile>{"/dialogs.js", {script, embedded::research_page_dialogs_js}},
    std::pair<std::string_view, StaticFile>{"/format.js", {script, embedded::research_page_format_js}},
    std::pair<std::string_view, StaticFile>{"/grid.js", {script, embedded::research_page_grid_js}},
    std::pair<std::string_view, StaticFile>{"/participant.js", {script, embedded::research_page_participant_js}},
    std::pair<std::string_view, StaticFile>{"/problems.js", {script, embedded::research_page_problems_js}},
    std::pair<std::string_view, StaticFile>{"/server.js", {script, embedded::research_page_server_js}},
    std::pair<std::string_view, StaticFile>{"/uplot.js", {script, embedded::uPlot_iife_min_js}},
    std::pair<std::string_view, StaticFile>{"/uplot.css", {css, embedded::uPlot_min_css}},
    std::pair<std::string_view, StaticFile>{"/uplot-license.txt", {text, embedded::LICENSE}},
};

}  // namespace

std::optional<StaticFile> staticFile(std::string_view path) {
    const auto* found = std::ranges::find(files, path, &std::pair<std::string_view, StaticFile>::first);
    return found == files.end() ? std::nullopt : std::optional(found->second);
}

}  // namespace tarvex::collector
