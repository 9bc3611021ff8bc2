#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

namespace DHCPLoad {

/// A point of a drawing, from its upper left corner, in pixels.
struct Point {
    double x = 0;
    double y = 0;
};

/// A plot as an SVG file, drawn piece by piece; what is drawn later lies above.
class Drawing {
  public:
    enum class Anchor { start, middle, end };

    Drawing(double width, double height);

    void text(Point at, std::string_view words, Anchor anchor = Anchor::start, std::string_view colour = "black");
    /// A faint line across a plot, with the value that it stands for at its left.
    void gridAcross(double left, double right, double y, std::string_view value);
    /// A faint line up a plot, with the value that it stands for below it.
    void gridUp(double x, double top, double bottom, std::string_view value);
    void dot(Point at, std::string_view colour);
    /// A line through points; nothing without any.
    void line(std::span<const Point> points, std::string_view colour);
    /// What lies between two lines, from the first one's start to its end and back along the second one.
    void band(std::span<const Point> upper, std::span<const Point> lower, std::string_view colour);

    /// The whole file.
    [[nodiscard]] std::string finished() const { return text_ + "</svg>\n"; }

    /// The colour of the line of that number, each easy to tell from the next for everybody.
    [[nodiscard]] static std::string_view colour(std::size_t number);

  private:
    std::string text_;
};

} // namespace DHCPLoad
