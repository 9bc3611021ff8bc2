#include "Drawing.hpp"

#include <fmt/format.h>

#include <array>

namespace DHCPLoad {

namespace {

constexpr double gapToLabel = 6;

std::string_view word(Drawing::Anchor anchor) {
    switch (anchor) {
    case Drawing::Anchor::start:
        return "start";
    case Drawing::Anchor::middle:
        return "middle";
    case Drawing::Anchor::end:
        break;
    }
    return "end";
}

std::string pathThrough(std::span<const Point> points) {
    std::string path;
    for (const Point& point : points) {
        path += fmt::format("{}{:.1f} {:.1f}", path.empty() ? "M" : "L", point.x, point.y);
    }
    return path;
}

} // namespace

Drawing::Drawing(double width, double height)
    : text_(
          fmt::format("<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"{0}\" height=\"{1}\" viewBox=\"0 0 {0} {1}\" "
                      "font-family=\"sans-serif\" font-size=\"13\">\n<rect width=\"100%\" height=\"100%\" "
                      "fill=\"white\"/>\n",
                      width, height)) {}

void Drawing::text(Point at, std::string_view words, Anchor anchor, std::string_view colour) {
    text_ += fmt::format("<text x=\"{:.1f}\" y=\"{:.1f}\" text-anchor=\"{}\" fill=\"{}\">{}</text>\n", at.x, at.y,
                         word(anchor), colour, words);
}

void Drawing::gridAcross(double left, double right, double y, std::string_view value) {
    constexpr double halfALine = 4;
    text_ += fmt::format("<path d=\"M{} {:.1f}H{}\" stroke=\"#ddd\"/>\n", left, y, right);
    text({left - gapToLabel, y + halfALine}, value, Anchor::end);
}

void Drawing::gridUp(double x, double top, double bottom, std::string_view value) {
    constexpr double aLine = 12;
    text_ += fmt::format("<path d=\"M{:.1f} {}V{}\" stroke=\"#ddd\"/>\n", x, top, bottom);
    text({x, bottom + gapToLabel + aLine}, value, Anchor::middle);
}

void Drawing::dot(Point at, std::string_view colour) {
    text_ += fmt::format("<circle cx=\"{:.1f}\" cy=\"{:.1f}\" r=\"3\" fill=\"{}\"/>\n", at.x, at.y, colour);
}

void Drawing::line(std::span<const Point> points, std::string_view colour) {
    if (!points.empty()) {
        text_ += fmt::format("<path d=\"{}\" fill=\"none\" stroke=\"{}\" stroke-width=\"2\"/>\n", pathThrough(points),
                             colour);
    }
}

void Drawing::band(std::span<const Point> upper, std::span<const Point> lower, std::string_view colour) {
    std::string path = pathThrough(upper);
    for (std::size_t left = lower.size(); left > 0; --left) {
        path += fmt::format("L{:.1f} {:.1f}", lower[left - 1].x, lower[left - 1].y);
    }
    if (!path.empty()) {
        text_ += fmt::format("<path d=\"{}Z\" fill=\"{}\" stroke=\"{}\" stroke-width=\"1\"/>\n", path, colour, colour);
    }
}

std::string_view Drawing::colour(std::size_t number) {
    constexpr std::array<std::string_view, 6> colours{"#0072b2", "#d55e00", "#009e73", "#cc79a7", "#666666", "#e69f00"};
    return colours.at(number % colours.size());
}

} // namespace DHCPLoad
