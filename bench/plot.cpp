// The plot of the reads, as SVG: both axes logarithmic, a line for each series.
#include <algorithm>
#include <cmath>
#include <cstdio>

#include "bench/harness.h"

namespace bench {
namespace {

constexpr double kWidth = 760;
constexpr double kHeight = 440;
constexpr double kLeft = 70;
constexpr double kRight = 230;  // room for the names of the series
constexpr double kTop = 30;
constexpr double kBottom = 50;
constexpr const char* kColours[] = {"#1b6ca8", "#c0392b", "#2e8b57", "#8e44ad",
                                    "#d68910", "#555555", "#16a085", "#7f5539"};

// A logarithmic axis between two places of the picture.
struct Axis {
  double low;
  double high;
  double from;
  double to;

  double at(double value) const {
    return from + (to - from) * (std::log10(value) - low) / (high - low);
  }
};

Axis axis_of(double least, double most, double from, double to) {
  double low = std::floor(std::log10(least));
  double high = std::ceil(std::log10(most));
  if (low == high) high += 1;
  return {low, high, from, to};
}

std::string element(const char* how, double a, double b, double c, double d) {
  char text[256];
  (void)std::snprintf(text, sizeof text, how, a, b, c, d);
  return text;
}

std::string label(double x, double y, const char* anchor, const std::string& text) {
  char open[160];
  (void)std::snprintf(open, sizeof open, "<text x=\"%.1f\" y=\"%.1f\" text-anchor=\"%s\">", x, y,
                      anchor);
  return open + text + "</text>\n";
}

std::string power_label(double power, bool time) {
  const double value = std::pow(10, power);
  char text[32];
  if (time && value >= 1000) {
    (void)std::snprintf(text, sizeof text, "%g us", value / 1000);
  } else {
    (void)std::snprintf(text, sizeof text, time ? "%g ns" : "%.0f", value);
  }
  return text;
}

std::string grid_of(const Axis& x, const Axis& y) {
  std::string text;
  constexpr const char* kLine =
      "<line x1=\"%.1f\" y1=\"%.1f\" x2=\"%.1f\" y2=\"%.1f\" stroke=\"#ddd\"/>\n";
  for (int power = static_cast<int>(x.low); power <= static_cast<int>(x.high); ++power) {
    const double at = x.at(std::pow(10, power));
    text += element(kLine, at, y.from, at, y.to);
    text += label(at, y.from + 18, "middle", power_label(power, false));
  }
  for (int power = static_cast<int>(y.low); power <= static_cast<int>(y.high); ++power) {
    const double at = y.at(std::pow(10, power));
    text += element(kLine, x.from, at, x.to, at);
    text += label(x.from - 6, at + 4, "end", power_label(power, true));
  }
  text += label((x.from + x.to) / 2, y.from + 40, "middle", "nodes in the database");
  text += label(x.from, y.to - 12, "start", "time of one read");
  return text;
}

std::string line_of(const std::vector<Point>& points, const std::string& series, const Axis& x,
                    const Axis& y, const std::string& colour) {
  std::string path;
  std::string marks;
  const Point* last = nullptr;
  for (const Point& point : points) {
    if (point.series != series || point.nanos <= 0) continue;
    const double px = x.at(point.nodes);
    const double py = y.at(point.nanos);
    path += element(path.empty() ? "M%.1f %.1f" : " L%.1f %.1f", px, py, 0, 0);
    marks += element("<circle cx=\"%.1f\" cy=\"%.1f\" r=\"3\" fill=\"", px, py, 0, 0) + colour +
             "\"/>\n";
    last = &point;
  }
  if (last == nullptr) return "";
  return "<path d=\"" + path + "\" fill=\"none\" stroke=\"" + colour + "\" stroke-width=\"2\"/>\n" +
         marks + label(x.at(last->nodes) + 8, y.at(last->nanos) + 4, "start", series);
}

std::vector<std::string> series_of(const std::vector<Point>& points) {
  std::vector<std::string> names;
  for (const Point& point : points) {
    if (std::find(names.begin(), names.end(), point.series) == names.end()) {
      names.push_back(point.series);
    }
  }
  return names;
}

}  // namespace

std::string plot_of(const std::vector<Point>& points) {
  std::string text = element(
      "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"%.0f\" "
      "height=\"%.0f\" font-family=\"sans-serif\" font-size=\"12\">\n",
      kWidth, kHeight, 0, 0);
  text += "<rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n";
  double least_nodes = 1e9;
  double most_nodes = 1;
  double least = 1e12;
  double most = 1;
  for (const Point& point : points) {
    if (point.nanos <= 0) continue;
    least_nodes = std::min<double>(least_nodes, point.nodes);
    most_nodes = std::max<double>(most_nodes, point.nodes);
    least = std::min(least, point.nanos);
    most = std::max(most, point.nanos);
  }
  if (least <= most && !points.empty()) {
    const Axis x = axis_of(least_nodes, most_nodes, kLeft, kWidth - kRight);
    const Axis y = axis_of(least, most, kHeight - kBottom, kTop);
    text += grid_of(x, y);
    size_t colour = 0;
    for (const std::string& series : series_of(points)) {
      text += line_of(points, series, x, y, kColours[colour++ % std::size(kColours)]);
    }
  }
  return text + "</svg>\n";
}

}  // namespace bench
