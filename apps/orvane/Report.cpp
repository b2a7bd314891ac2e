#include "apps/orvane/Report.h"

#include "apps/orvane/PngWriter.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <vector>

namespace orvane {
namespace app {

namespace {

namespace fs = std::filesystem;

// Pixels sampled for the grey ranges of the pictures: enough for stable percentiles,
// few enough to cost nothing next to the calibrations.
constexpr size_t kSampleSize = 250000;

const char* StatusName(StepReport::Status status) {
    switch (status) {
    case StepReport::Status::Ran:
        return "ran";
    case StepReport::Status::Skipped:
        return "skipped";
    case StepReport::Status::Failed:
        return "failed";
    }
    return "unknown";
}

void WriteTextFile(const std::string& path, const std::string& content) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    if (file) {
        file.write(content.data(), static_cast<std::streamsize>(content.size()));
        file.close();
    }
    if (!file) {
        throw std::runtime_error(path + ": cannot write file");
    }
}

std::string Printf(const char* format, double value) {
    char text[64];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

// ---- grey ranges -------------------------------------------------------------------

// The 1st, 50th and 99th percentile of the finite pixels of an image, on a strided
// sample of them. All zero when no pixel is finite.
struct Spread {
    float low = 0.0f;
    float median = 0.0f;
    float high = 0.0f;
};

Spread Percentiles(const ImageAcquisition<float>& image) {
    const size_t n = static_cast<size_t>(image.GetPixelCount());
    const size_t stride = std::max<size_t>(1, n / kSampleSize);
    std::vector<float> sample;
    sample.reserve(n / stride + 1);
    const float* data = image.GetData();
    for (size_t i = 0; i < n; i += stride) {
        if (std::isfinite(data[i])) {
            sample.push_back(data[i]);
        }
    }
    Spread spread;
    if (sample.empty()) {
        return spread;
    }
    auto at = [&sample](double fraction) {
        const auto k = static_cast<std::ptrdiff_t>(fraction * static_cast<double>(sample.size() - 1));
        std::nth_element(sample.begin(), sample.begin() + k, sample.end());
        return sample[static_cast<size_t>(k)];
    };
    spread.low = at(0.01);
    spread.median = at(0.5);
    spread.high = at(0.99);
    return spread;
}

// A range that is never empty, so a uniform image still shows mid grey.
void Widen(float& low, float& high) {
    if (!(high > low)) {
        const float margin = std::max(1.0f, std::fabs(low)) * 0.01f;
        low -= margin;
        high += margin;
    }
}

// ---- the pictures ------------------------------------------------------------------

struct Picture {
    std::string file;
    std::string caption;
};

std::string RangeText(float low, float high) {
    return Printf("%.4g", low) + " (black) to " + Printf("%.4g", high) + " (white)";
}

void WriteValuePicture(const std::string& dir, std::vector<Picture>& pictures, const std::string& file,
                       const ImageAcquisition<float>& image, float low, float high, const std::string& caption) {
    Widen(low, high);
    WritePng((fs::path(dir) / file).string(), image, low, high);
    pictures.push_back({file, caption + "; grey " + RangeText(low, high) + "."});
}

std::vector<Picture> WritePictures(const std::string& dir, const CalibrationOutputs& outputs) {
    std::vector<Picture> pictures;
    if (outputs.defects) {
        WriteDefectPng((fs::path(dir) / "defect-map.png").string(), *outputs.defects);
        pictures.push_back({"defect-map.png",
                            "Final defect map: black pixels are flagged (a reduced pixel is black when any "
                            "pixel of its block is)."});
    }
    if (outputs.gain) {
        // At least +-20 % around the median, wider when the gain spreads further.
        const Spread s = Percentiles(*outputs.gain);
        WriteValuePicture(dir, pictures, "gain.png", *outputs.gain, std::min(s.low, 0.8f * s.median),
                          std::max(s.high, 1.2f * s.median), "Linear gain");
    }
    if (outputs.offset) {
        const Spread s = Percentiles(*outputs.offset);
        WriteValuePicture(dir, pictures, "offset.png", *outputs.offset, s.low, s.high,
                          "Dynamic offset, 1st to 99th percentile");
    }
    // Both flats share one range relative to their medians (that of the flat before
    // correction), so that the picture after correction shows how much flatter it is.
    double relative = 0.0;
    if (outputs.flatBefore) {
        const Spread s = Percentiles(*outputs.flatBefore);
        if (s.median > 0.0f) {
            relative = std::max(s.median - s.low, s.high - s.median) / s.median;
        }
        WriteValuePicture(dir, pictures, "flat-before.png", *outputs.flatBefore, s.low, s.high,
                          "Flat of the middle dose minus the offset, 1st to 99th percentile");
    }
    if (outputs.flatAfter) {
        const Spread s = Percentiles(*outputs.flatAfter);
        if (relative > 0.0 && s.median > 0.0f) {
            const auto margin = static_cast<float>(relative * s.median);
            WriteValuePicture(dir, pictures, "flat-after.png", *outputs.flatAfter, s.median - margin,
                              s.median + margin,
                              "The same flat after gain correction, on the same range relative to its median");
        } else {
            WriteValuePicture(dir, pictures, "flat-after.png", *outputs.flatAfter, s.low, s.high,
                              "The same flat after gain correction, 1st to 99th percentile");
        }
    }
    return pictures;
}

// The three flats of the correction, the corrected ones on one range, so that the
// replaced pixels show against the same grey.
std::vector<Picture> WriteCorrectionPictures(const std::string& dir, const CorrectionFigures* correction) {
    std::vector<Picture> pictures;
    if (!correction || !correction->corrected) {
        return pictures;
    }
    const Spread raw = Percentiles(*correction->raw);
    WriteValuePicture(dir, pictures, "correction-raw.png", *correction->raw, raw.low, raw.high,
                      "Raw: the mean flat as read, 1st to 99th percentile");
    const Spread full = Percentiles(*correction->corrected);
    WriteValuePicture(dir, pictures, "correction-offset-gain.png", *correction->offsetGain, full.low, full.high,
                      "Offset and gain corrected, defects left as they are");
    WriteValuePicture(dir, pictures, "correction-full.png", *correction->corrected, full.low, full.high,
                      "Fully corrected: defects replaced; both corrected flats on the 1st to 99th percentile "
                      "of this one");
    return pictures;
}

// ---- report.html -------------------------------------------------------------------

std::string Html(const std::string& text) {
    std::string out;
    out.reserve(text.size());
    for (const char c : text) {
        switch (c) {
        case '&':
            out += "&amp;";
            break;
        case '<':
            out += "&lt;";
            break;
        case '>':
            out += "&gt;";
            break;
        case '"':
            out += "&quot;";
            break;
        default:
            out += c;
        }
    }
    return out;
}

std::string Join(const std::vector<std::string>& items) {
    std::string out;
    for (const std::string& item : items) {
        out += (out.empty() ? "" : ", ") + item;
    }
    return out;
}

std::string Percent(double fraction) {
    return std::isfinite(fraction) ? Printf("%.3f %%", 100.0 * fraction) : "n/a";
}

std::string Fixed3(double value) {
    return std::isfinite(value) ? Printf("%.3f", value) : "n/a";
}

std::string NonUniformityRatio(double before, double after) {
    const double ratio = before / after;
    return after > 0.0 && std::isfinite(ratio) ? Printf("%.1fx lower", ratio) : "n/a";
}

const char* kStyle = R"(
body { font-family: sans-serif; margin: 2em; color: #222; max-width: 1100px; }
h1 { font-size: 1.6em; }
h2 { font-size: 1.25em; margin-top: 1.6em; border-bottom: 1px solid #ccc; }
table { border-collapse: collapse; margin: 0.5em 0; }
th, td { border: 1px solid #ccc; padding: 0.25em 0.6em; text-align: left; vertical-align: top; }
th { background: #f0f0f0; }
td.num { text-align: right; font-variant-numeric: tabular-nums; }
tr.ran td.status { color: #1a7f37; }
tr.skipped td.status { color: #777; }
tr.failed td.status { color: #b00020; font-weight: bold; }
tr.pass td.status { color: #1a7f37; font-weight: bold; }
tr.attention td.status { color: #b00020; font-weight: bold; }
tr.skipped td.status, tr.ran td.status { color: #555; }
h2.panel { font-size: 1.45em; border-bottom: 3px solid #444; margin-top: 2em; }
figure { display: inline-block; margin: 0.5em 1em 1em 0; vertical-align: top; }
figure img { max-width: 512px; border: 1px solid #999; image-rendering: pixelated; }
figcaption { max-width: 512px; font-size: 0.9em; color: #444; }
div.side { display: flex; gap: 0.5em; }
div.side figure { margin: 0; flex: 1; }
div.side figure img { max-width: 100%; }
)";

std::string Met(bool met) { return met ? "met" : "<b>not met</b>"; }

std::string CorrectionSection(const CorrectionFigures& figures, const std::vector<Picture>& pictures) {
    std::ostringstream html;
    html << "<h2>Correction</h2>\n";
    if (!figures.notMeasured.empty()) {
        html << "<p>Not measured: " << Html(figures.notMeasured) << "</p>\n";
        return html.str();
    }
    html << "<p>The " << figures.frames << " flats of dose " << figures.dose
         << " (the middle dose), each corrected on its own with the stores of this run; the pictures show "
            "their means, the figures are measured on the first corrected flat alone (the mean is what the "
            "gain was computed from). "
         << "Figures over the area the linear gain corrects: top " << figures.area.top << ", left "
         << figures.area.left << ", " << figures.area.height << " &times; " << figures.area.width
         << " pixels, defects included unless said otherwise.</p>\n"
         << "<div class=\"side\">\n";
    for (const Picture& picture : pictures) {
        html << "<figure><img src=\"" << Html(picture.file) << "\" alt=\"" << Html(picture.file)
             << "\"><figcaption><b>" << Html(picture.file) << "</b>: " << Html(picture.caption)
             << "</figcaption></figure>\n";
    }
    html << "</div>\n<table>\n"
         << "<tr><th>non-uniformity, all pixels</th><td class=\"num\">" << Percent(figures.nonUniformityAll)
         << "</td><td></td></tr>\n<tr><th>non-uniformity, good pixels</th><td class=\"num\">"
         << Percent(figures.nonUniformityGood) << "</td><td></td></tr>\n<tr><th>ratio all / good</th><td class=\"num\">"
         << Fixed3(figures.nonUniformityRatio) << "</td><td>target &le; " << Printf("%.1f", kNonUniformityRatioTarget)
         << ": " << Met(figures.nonUniformityRatio <= kNonUniformityRatioTarget) << "</td></tr>\n"
         << "<tr><th>pixels beyond 5 sigma of their 7 &times; 7 median</th><td class=\"num\">" << figures.outliers
         << " (" << Printf("%.2f", 1.0e5 * figures.outlierFraction) << " per 100,000)</td><td>target &lt; 1 per 100,000: "
         << Met(figures.outlierFraction < kOutlierFractionTarget) << "</td></tr>\n"
         << "<tr><th>replaced pixels against the defect-free truth</th><td class=\"num\">median "
         << Percent(figures.replacedErrorMedian) << ", 99th percentile " << Percent(figures.replacedError99)
         << "</td><td>" << figures.replacedSamples << " replaced, " << figures.unreplacedSamples
         << " left unreplaced</td></tr>\n</table>\n"
         << "<p>Non-uniformity: robust standard deviation over mean of the first corrected flat. Sigma of the 5-sigma "
            "test: that of all pixels. Truth: the same flats rendered without the planted defects, corrected "
            "with an offset and gain calibrated the same way from defect-free frames; error |replaced - true| / "
            "true over every replaced pixel of every flat.</p>\n";
    return html.str();
}

// The numbers of a set, comma-separated.
std::string NumberList(const std::set<int>& numbers) {
    std::string text;
    for (int number : numbers) text += (text.empty() ? "" : ", ") + std::to_string(number);
    return text;
}

// The lines of a set, "none" when empty.
std::string LineList(const std::set<int>& lines) { return lines.empty() ? "none" : NumberList(lines); }

std::string TargetList(const std::vector<DefectKind>& targets) {
    std::string text;
    for (DefectKind kind : targets) text += (text.empty() ? "" : ", ") + std::string(DefectKindName(kind));
    return text;
}

// What each calibration with countable findings had planted, found and missed.
std::string PlantedFoundSection(const Evaluation& e) {
    std::ostringstream html;
    const auto row = [&html](const std::string& step, const std::string& what, long planted, long found,
                             long falseFinds) {
        html << "<tr><td>" << Html(step) << "</td><td>" << Html(what) << "</td><td class=\"num\">" << planted
             << "</td><td class=\"num\">" << found << "</td><td class=\"num\">" << planted - found
             << "</td><td class=\"num\">" << falseFinds << "</td></tr>\n";
    };
    html << "<h3>Planted, found and missed</h3>\n<table>\n<tr><th>calibration</th><th>what</th><th>planted</th>"
            "<th>found</th><th>missed</th><th>false finds</th></tr>\n";
    for (const MapScore& m : e.maps) {
        row(m.step, "pixels of " + TargetList(m.targets), m.planted, m.found,
            m.flagged - m.flaggedPlanted - m.flaggedByRule);
    }
    if (e.echoLinesRan) {
        const EchoLineScore& l = e.echoLines;
        row("echo-lines", "lines (a double line counts two)", l.plantedLines, l.foundPlanted,
            l.foundLines - l.foundPlanted - l.foundEchoRows);
    }
    if (e.clustersRan) {
        const ClusterScore& c = e.clusters;
        row("clusters", "offset changes at or above the threshold (false finds: places off every change)", c.planted,
            c.found, c.places - c.placesOnChanges);
    }
    html << "</table>\n<p>False finds of a defect map leave out the pixels the flagging rules add (see below).</p>\n";
    return html.str();
}

std::string MapSection(const std::vector<MapScore>& maps) {
    std::ostringstream html;
    html << "<h3>Each defect map</h3>\n<table>\n<tr><th>map</th><th>kinds it is to find</th><th>planted</th>"
         << "<th>found</th><th>recall</th><th>flagged</th><th>flagged by rule</th><th>precision</th>"
         << "<th>without those</th></tr>\n";
    for (const MapScore& m : maps) {
        html << "<tr><td>" << Html(m.step) << "</td><td>" << Html(TargetList(m.targets)) << "</td><td class=\"num\">"
             << m.planted << "</td><td class=\"num\">" << m.found << "</td><td class=\"num\">" << Fixed3(m.recall)
             << "</td><td class=\"num\">" << m.flagged << "</td><td class=\"num\">" << m.flaggedByRule
             << "</td><td class=\"num\">" << Fixed3(m.precision) << "</td><td class=\"num\">"
             << Fixed3(m.precisionWithoutRule) << "</td></tr>\n";
    }
    html << "</table>\n<p>Recall: planted pixels of the map's kinds inside the area its step measures. Flagged by "
            "rule: flagged pixels nothing was planted on, on a row or column with a planted run, which the "
            "flagging rules take whole.</p>\n";
    return html.str();
}

std::string EchoLineSection(const EchoLineScore& e) {
    std::ostringstream html;
    html << "<h3>Echo lines</h3>\n<table>\n<tr><th></th><th>planted</th><th>found</th></tr>\n"
         << "<tr><th>single</th><td>" << LineList(e.plantedSingle) << "</td><td>" << LineList(e.foundSingle)
         << "</td></tr>\n<tr><th>double</th><td>" << LineList(e.plantedDouble) << "</td><td>"
         << LineList(e.foundDouble) << "</td></tr>\n</table>\n<table>\n<tr><th>recall</th><td class=\"num\">"
         << Fixed3(e.recall) << " (" << e.foundPlanted << " of " << e.plantedLines << " planted lines, " << e.mirrored
         << " of them numbered from the last row)</td></tr>\n<tr><th>precision</th><td class=\"num\">"
         << Fixed3(e.precision) << " (" << e.foundLines << " lines found, " << e.foundEchoRows
         << " of them echo rows)</td></tr>\n</table>\n"
         << "<p>A planted line: a row with a run of planted defective pixels as long as the step's shortest run, on "
            "one side of its middle column; below the middle row it has the number of its mirror row. A double line "
            "is given by its lower number.</p>\n";
    return html.str();
}

std::string GainPolySection(const std::vector<GainPolyScore>& polys) {
    std::ostringstream html;
    html << "<h3>Polynomial gains</h3>\n<table>\n<tr><th>gain</th>";
    for (std::size_t d = 0; d < polys.front().doseErrors.size(); ++d) html << "<th>dose " << d + 1 << "</th>";
    html << "</tr>\n";
    for (const GainPolyScore& poly : polys) {
        html << "<tr><td>" << Html(poly.step) << "</td>";
        for (double error : poly.doseErrors) html << "<td class=\"num\">" << Percent(error) << "</td>";
        html << "</tr>\n";
    }
    html << "</table>\n<p>Mean |corrected / its mean - 1| of the signal each pixel is expected to read at the "
            "dose (noise-free, the planted pixels left out), corrected by the gain.</p>\n";
    return html.str();
}

std::string OffsetSection(const std::vector<OffsetMatch>& matches) {
    std::ostringstream html;
    html << "<h3>Offsets</h3>\n<table>\n<tr><th>offset</th><th>state</th><th>temperature</th><th>error</th>"
            "<th>noise floor</th><th>bias</th></tr>\n";
    for (const OffsetMatch& match : matches) {
        html << "<tr><td>" << Html(match.step) << "</td><td>" << Html(match.state) << "</td><td class=\"num\">"
             << Printf("%.2f", static_cast<double>(match.temperature)) << "</td><td class=\"num\">"
             << Printf("%.3f", match.error) << "</td><td class=\"num\">" << Printf("%.3f", match.noiseFloor)
             << "</td><td class=\"num\">" << Printf("%+.3f", match.bias) << "</td></tr>\n";
    }
    html << "</table>\n<p>Each offset against the simulator's true dark level at the state, in counts, over the "
            "pixels nothing was planted on outside the local offset changes: error is the mean |offset - truth|, "
            "bias the mean (offset - truth). The noise floor is the mean |error| that the frames' read noise and "
            "the roundings alone leave. The time grid's offset there is its blend of the two neighbouring "
            "entries.</p>\n";
    return html.str();
}

std::string ClusterSection(const ClusterScore& c) {
    std::ostringstream html;
    html << "<h3>Clusters</h3>\n<table>\n<tr><th>recall</th><td class=\"num\">" << Fixed3(c.recall) << " ("
         << c.found << " of " << c.planted << " offset changes; " << c.weakFound << " of the " << c.weak
         << " below the threshold)</td></tr>\n<tr><th>precision</th><td class=\"num\">" << Fixed3(c.precision)
         << " (" << c.placesOnChanges << " of " << c.places << " places on a change)</td></tr>\n"
         << "<tr><th>largest row error</th><td class=\"num\">" << c.largestRowError << "</td></tr>\n</table>\n"
         << "<p>Local offset changes planted in the last third of the darks. A place is on a change in its half of "
            "the frame, in its columns (one column of slack) and within three rows of the edge the search meets "
            "first.</p>\n";
    return html.str();
}

// The pictures with their files under `folder` ("" or ending in '/').
std::vector<Picture> InFolder(std::vector<Picture> pictures, const std::string& folder) {
    for (Picture& picture : pictures) picture.file = folder + picture.file;
    return pictures;
}

// The summary: a line per calibration of every panel.
std::string VerdictSection(const std::vector<CalibrationVerdict>& verdicts, bool panels) {
    std::ostringstream html;
    html << "<h2>Summary</h2>\n<table>\n<tr><th>calibration</th>" << (panels ? "<th>panel</th>" : "")
         << "<th>verdict</th><th>figure</th></tr>\n";
    for (const CalibrationVerdict& v : verdicts) {
        html << "<tr class=\"" << v.verdict << "\"><td>" << Html(v.step) << "</td>"
             << (panels ? "<td>" + Html(v.model) + "</td>" : "") << "<td class=\"status\">" << v.verdict
             << "</td><td>" << Html(v.figure) << "</td></tr>\n";
    }
    html << "</table>\n<p>pass: the figure against the simulated truth meets its target (recall &ge; "
         << Printf("%.2f", kRecallTarget) << ", precision &ge; " << Printf("%.1f", kPrecisionTarget)
         << ", gain error &le; " << Printf("%.0f", 100.0 * kGainErrorTarget) << " % with a flat "
         << Printf("%.0f", kFlatteningTarget) << " times flatter, an offset's bias within "
         << Printf("%.0f", kOffsetBiasTarget) << " count and its error within "
         << Printf("%.0f", 100.0 * (kOffsetNoiseTarget - 1.0))
         << " % of the noise floor); attention: it does not, or the step failed; ran: no figure against the "
            "truth.</p>\n";
    return html.str();
}

std::string HtmlPage(const std::string& title, const std::string& body) {
    return "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n<title>" + Html(title) +
           "</title>\n<style>" + kStyle + "</style>\n</head>\n<body>\n<h1>" + Html(title) + "</h1>\n" + body +
           "</body>\n</html>\n";
}

// The sections of one panel, its pictures under `folder`.
std::string PanelSections(const CalibrationOutputs& outputs, const std::vector<Picture>& pictures,
                          const Evaluation* evaluation, const CorrectionFigures* correction,
                          const std::vector<Picture>& correctionPictures) {
    std::ostringstream html;

    html << "<h2>Steps</h2>\n<table>\n<tr><th>step</th><th>status</th><th>detail</th><th>seconds</th>"
         << "<th>files</th></tr>\n";
    for (const StepReport& step : outputs.steps) {
        const char* status = StatusName(step.status);
        html << "<tr class=\"" << status << "\"><td>" << Html(step.name) << "</td><td class=\"status\">" << status
             << "</td><td>" << Html(step.detail) << "</td><td class=\"num\">"
             << (step.status != StepReport::Status::Skipped ? Printf("%.2f", step.seconds) : "") << "</td><td>"
             << Html(Join(step.files)) << "</td></tr>\n";
    }
    html << "</table>\n";

    html << "<h2>Flat-field non-uniformity</h2>\n<table>\n"
         << "<tr><th>before gain correction</th><td class=\"num\">" << Percent(outputs.nonUniformityBefore)
         << "</td></tr>\n<tr><th>after gain correction</th><td class=\"num\">"
         << Percent(outputs.nonUniformityAfter) << "</td></tr>\n<tr><th>improvement</th><td class=\"num\">"
         << NonUniformityRatio(outputs.nonUniformityBefore, outputs.nonUniformityAfter) << "</td></tr>\n"
         << "</table>\n<p>Robust standard deviation over mean of the good pixels of the flat.</p>\n";

    html << "<h2>Pictures</h2>\n";
    if (pictures.empty()) {
        html << "<p>No step that makes a picture ran.</p>\n";
    }
    for (const Picture& picture : pictures) {
        html << "<figure><img src=\"" << Html(picture.file) << "\" alt=\"" << Html(picture.file)
             << "\"><figcaption><b>" << Html(picture.file) << "</b>: " << Html(picture.caption)
             << "</figcaption></figure>\n";
    }

    if (evaluation) {
        html << "<h2>Comparison with the simulated truth</h2>\n" << PlantedFoundSection(*evaluation)
             << "<h3>The final defect map and the linear gain</h3>\n<table>\n"
             << "<tr><th>defect kind</th><th>planted</th><th>found</th><th>recall</th></tr>\n";
        for (const KindScore& score : evaluation->kinds) {
            html << "<tr><td>" << Html(score.kind) << "</td><td class=\"num\">" << score.planted
                 << "</td><td class=\"num\">" << score.found << "</td><td class=\"num\">" << Fixed3(score.recall)
                 << "</td></tr>\n";
        }
        html << "</table>\n<table>\n<tr><th>precision</th><td class=\"num\">" << Fixed3(evaluation->precision)
             << " (" << evaluation->flagged << " flagged, " << evaluation->flaggedPlanted
             << " of them planted)</td></tr>\n<tr><th>gain error</th><td class=\"num\">"
             << Percent(evaluation->gainError) << "</td></tr>\n<tr><th>non-uniformity before</th><td class=\"num\">"
             << Percent(evaluation->nonUniformityBefore) << "</td></tr>\n"
             << "<tr><th>non-uniformity after</th><td class=\"num\">" << Percent(evaluation->nonUniformityAfter)
             << " (" << NonUniformityRatio(evaluation->nonUniformityBefore, evaluation->nonUniformityAfter)
             << ")</td></tr>\n</table>\n";
        if (!evaluation->maps.empty()) html << MapSection(evaluation->maps);
        if (evaluation->echoLinesRan) html << EchoLineSection(evaluation->echoLines);
        if (evaluation->clustersRan) html << ClusterSection(evaluation->clusters);
        if (!evaluation->gainPolys.empty()) html << GainPolySection(evaluation->gainPolys);
        if (!evaluation->offsets.empty()) html << OffsetSection(evaluation->offsets);
    }
    if (correction) {
        html << CorrectionSection(*correction, correctionPictures);
    }
    return html.str();
}

// ---- summary.json ------------------------------------------------------------------

std::string JsonString(const std::string& text) {
    std::string out = "\"";
    for (const char c : text) {
        switch (c) {
        case '"':
            out += "\\\"";
            break;
        case '\\':
            out += "\\\\";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\r':
            out += "\\r";
            break;
        case '\t':
            out += "\\t";
            break;
        case '\b':
            out += "\\b";
            break;
        case '\f':
            out += "\\f";
            break;
        default:
            if (static_cast<unsigned char>(c) < 0x20) {
                char escaped[8];
                std::snprintf(escaped, sizeof escaped, "\\u%04x", static_cast<unsigned>(c));
                out += escaped;
            } else {
                out += c;
            }
        }
    }
    return out + '"';
}

// JSON has no NaN or infinity: such figures are null.
std::string JsonNumber(double value) {
    return std::isfinite(value) ? Printf("%.10g", value) : "null";
}

std::string JsonCorrection(const CorrectionFigures& figures) {
    std::ostringstream json;
    json << ",\n  \"correction\": {\n";
    if (!figures.notMeasured.empty()) {
        json << "    \"notMeasured\": " << JsonString(figures.notMeasured) << "\n  }";
        return json.str();
    }
    json << "    \"dose\": " << figures.dose << ",\n    \"frames\": " << figures.frames << ",\n"
         << "    \"measuredOn\": \"the first flat of the dose, corrected on its own\",\n"
         << "    \"nonUniformityAll\": " << JsonNumber(figures.nonUniformityAll) << ",\n"
         << "    \"nonUniformityGood\": " << JsonNumber(figures.nonUniformityGood) << ",\n"
         << "    \"nonUniformityRatio\": " << JsonNumber(figures.nonUniformityRatio) << ",\n"
         << "    \"nonUniformityRatioMet\": "
         << (figures.nonUniformityRatio <= kNonUniformityRatioTarget ? "true" : "false") << ",\n"
         << "    \"outliers\": " << figures.outliers << ",\n"
         << "    \"outlierFraction\": " << JsonNumber(figures.outlierFraction) << ",\n"
         << "    \"outlierFractionMet\": " << (figures.outlierFraction < kOutlierFractionTarget ? "true" : "false")
         << ",\n    \"replacedSamples\": " << figures.replacedSamples << ",\n"
         << "    \"unreplacedSamples\": " << figures.unreplacedSamples << ",\n"
         << "    \"replacedErrorMedian\": " << JsonNumber(figures.replacedErrorMedian) << ",\n"
         << "    \"replacedError99\": " << JsonNumber(figures.replacedError99) << "\n  }";
    return json.str();
}

std::string JsonLines(const std::set<int>& lines) { return "[" + NumberList(lines) + "]"; }

std::string JsonMaps(const std::vector<MapScore>& maps) {
    std::ostringstream json;
    json << ",\n    \"maps\": [";
    for (std::size_t i = 0; i < maps.size(); ++i) {
        const MapScore& m = maps[i];
        json << (i ? ",\n" : "\n") << "      {\"step\": " << JsonString(m.step) << ", \"kinds\": [";
        for (std::size_t k = 0; k < m.targets.size(); ++k) {
            json << (k ? ", " : "") << JsonString(DefectKindName(m.targets[k]));
        }
        json << "], \"planted\": " << m.planted << ", \"found\": " << m.found
             << ", \"recall\": " << JsonNumber(m.recall)
             << ", \"flagged\": " << m.flagged << ", \"flaggedPlanted\": " << m.flaggedPlanted
             << ", \"flaggedByRule\": " << m.flaggedByRule << ", \"precision\": " << JsonNumber(m.precision)
             << ", \"precisionWithoutRule\": " << JsonNumber(m.precisionWithoutRule) << "}";
    }
    json << (maps.empty() ? "]" : "\n    ]");
    return json.str();
}

std::string JsonEchoLines(const EchoLineScore& e) {
    std::ostringstream json;
    json << ",\n    \"echoLines\": {\"plantedSingle\": " << JsonLines(e.plantedSingle)
         << ", \"plantedDouble\": " << JsonLines(e.plantedDouble) << ", \"foundSingle\": " << JsonLines(e.foundSingle)
         << ", \"foundDouble\": " << JsonLines(e.foundDouble) << ",\n      \"plantedLines\": " << e.plantedLines
         << ", \"mirrored\": " << e.mirrored << ", \"foundLines\": " << e.foundLines
         << ", \"foundPlanted\": " << e.foundPlanted << ", \"foundEchoRows\": " << e.foundEchoRows
         << ", \"recall\": " << JsonNumber(e.recall) << ", \"precision\": " << JsonNumber(e.precision) << "}";
    return json.str();
}

std::string JsonClusters(const ClusterScore& c) {
    std::ostringstream json;
    json << ",\n    \"clusters\": {\"planted\": " << c.planted << ", \"found\": " << c.found
         << ", \"weak\": " << c.weak << ", \"weakFound\": " << c.weakFound << ", \"places\": " << c.places
         << ", \"placesOnChanges\": " << c.placesOnChanges << ", \"largestRowError\": " << c.largestRowError
         << ",\n      \"recall\": " << JsonNumber(c.recall) << ", \"precision\": " << JsonNumber(c.precision) << "}";
    return json.str();
}

std::string JsonSummary(const std::string& model, const CalibrationOutputs& outputs, const Evaluation* evaluation,
                        const CorrectionFigures* correction, const std::vector<CalibrationVerdict>& verdicts) {
    std::ostringstream json;
    json << "{\n  \"model\": " << JsonString(model) << ",\n  \"calibrations\": [";
    for (size_t i = 0; i < verdicts.size(); ++i) {
        const CalibrationVerdict& v = verdicts[i];
        json << (i ? ",\n" : "\n") << "    {\"step\": " << JsonString(v.step) << ", \"model\": " << JsonString(v.model)
             << ", \"verdict\": " << JsonString(v.verdict) << ", \"figure\": " << JsonString(v.figure) << "}";
    }
    json << (verdicts.empty() ? "],\n" : "\n  ],\n") << "  \"steps\": [";
    for (size_t i = 0; i < outputs.steps.size(); ++i) {
        const StepReport& step = outputs.steps[i];
        json << (i ? ",\n" : "\n") << "    {\"name\": " << JsonString(step.name)
             << ", \"status\": " << JsonString(StatusName(step.status)) << ", \"detail\": " << JsonString(step.detail)
             << ", \"seconds\": " << JsonNumber(std::round(step.seconds * 1000.0) / 1000.0) << ", \"files\": [";
        for (size_t f = 0; f < step.files.size(); ++f) {
            json << (f ? ", " : "") << JsonString(step.files[f]);
        }
        json << "]}";
    }
    json << (outputs.steps.empty() ? "],\n" : "\n  ],\n");
    json << "  \"nonUniformityBefore\": " << JsonNumber(outputs.nonUniformityBefore) << ",\n"
         << "  \"nonUniformityAfter\": " << JsonNumber(outputs.nonUniformityAfter);
    if (evaluation) {
        json << ",\n  \"evaluation\": {\n    \"kinds\": [";
        for (size_t i = 0; i < evaluation->kinds.size(); ++i) {
            const KindScore& score = evaluation->kinds[i];
            json << (i ? ",\n" : "\n") << "      {\"kind\": " << JsonString(score.kind)
                 << ", \"planted\": " << score.planted << ", \"found\": " << score.found
                 << ", \"recall\": " << JsonNumber(score.recall) << "}";
        }
        json << (evaluation->kinds.empty() ? "],\n" : "\n    ],\n");
        json << "    \"flagged\": " << evaluation->flagged << ",\n"
             << "    \"flaggedPlanted\": " << evaluation->flaggedPlanted << ",\n"
             << "    \"precision\": " << JsonNumber(evaluation->precision) << ",\n"
             << "    \"gainError\": " << JsonNumber(evaluation->gainError);
        json << JsonMaps(evaluation->maps);
        if (evaluation->echoLinesRan) json << JsonEchoLines(evaluation->echoLines);
        if (evaluation->clustersRan) json << JsonClusters(evaluation->clusters);
        json << ",\n    \"gainPolys\": [";
        for (std::size_t i = 0; i < evaluation->gainPolys.size(); ++i) {
            const GainPolyScore& poly = evaluation->gainPolys[i];
            json << (i ? ", " : "") << "{\"step\": " << JsonString(poly.step) << ", \"doseErrors\": [";
            for (std::size_t d = 0; d < poly.doseErrors.size(); ++d) {
                json << (d ? ", " : "") << JsonNumber(poly.doseErrors[d]);
            }
            json << "], \"worst\": " << JsonNumber(poly.worst) << "}";
        }
        json << "],\n    \"offsets\": [";
        for (std::size_t i = 0; i < evaluation->offsets.size(); ++i) {
            const OffsetMatch& match = evaluation->offsets[i];
            json << (i ? "," : "") << "\n      {\"step\": " << JsonString(match.step)
                 << ", \"state\": " << JsonString(match.state)
                 << ", \"temperature\": " << JsonNumber(match.temperature)
                 << ", \"error\": " << JsonNumber(match.error) << ", \"noiseFloor\": " << JsonNumber(match.noiseFloor)
                 << ", \"bias\": " << JsonNumber(match.bias) << "}";
        }
        json << (evaluation->offsets.empty() ? "]" : "\n    ]");
        json << "\n  }";
    }
    if (correction) {
        json << JsonCorrection(*correction);
    }
    json << "\n}\n";
    return json.str();
}

}  // namespace

ReportPanel WriteReport(const std::string& dir, const std::string& model, const CalibrationOutputs& outputs,
                        const Evaluation* evaluation, const CorrectionFigures* correction,
                        const std::vector<ReportPanel>& embedded, const std::string& folder) {
    std::error_code error;
    fs::create_directories(dir, error);
    if (error) {
        throw std::runtime_error(dir + ": cannot create the report folder: " + error.message());
    }
    // The pictures first and report.html last, so that a report that exists is complete.
    const std::vector<Picture> pictures = WritePictures(dir, outputs);
    const std::vector<Picture> correctionPictures = WriteCorrectionPictures(dir, correction);
    const std::vector<CalibrationVerdict> verdicts = JudgeCalibrations(model, outputs, evaluation);
    std::vector<CalibrationVerdict> all = verdicts;
    std::string title = "Calibration report: " + model;
    for (const ReportPanel& panel : embedded) {
        all.insert(all.end(), panel.verdicts.begin(), panel.verdicts.end());
        title += " and " + panel.model;
    }
    WriteTextFile((fs::path(dir) / "summary.json").string(), JsonSummary(model, outputs, evaluation, correction, all));
    std::string body = VerdictSection(all, !embedded.empty());
    const std::string own = PanelSections(outputs, pictures, evaluation, correction, correctionPictures);
    if (embedded.empty()) {
        body += own;
    } else {
        body += "<h2 class=\"panel\">Panel " + Html(model) + "</h2>\n" + own;
        for (const ReportPanel& panel : embedded) {
            body += "<h2 class=\"panel\">Panel " + Html(panel.model) + "</h2>\n" + panel.sections;
        }
    }
    WriteTextFile((fs::path(dir) / "report.html").string(), HtmlPage(title, body));
    const std::string embeddable = PanelSections(outputs, InFolder(pictures, folder), evaluation, correction,
                                                 InFolder(correctionPictures, folder));
    return {model, embeddable, verdicts};
}

}  // namespace app
}  // namespace orvane
