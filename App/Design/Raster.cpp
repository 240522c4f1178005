#include "App/Design/Raster.h"

#include <QColor>
#include <QPainter>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <iterator>
#include <numeric>
#include <vector>

namespace App::Design {

namespace {

/// Coverage with floating-point precision: rounding after each filter pass would cause visible bands.
struct Field {
    int width;
    int height;
    std::vector<float> values =
        std::vector<float>(static_cast<std::size_t>(width) * static_cast<std::size_t>(height));

    float& at(std::ptrdiff_t x, std::ptrdiff_t y) { return *std::next(values.begin(), y * width + x); }
};

/// Returns the reach, in pixels to each side, of three box filters that approximate a Gaussian.
std::array<int, 3> boxReaches(qreal sigma)
{
    const qreal idealWidth = std::sqrt(4 * sigma * sigma + 1);
    const int narrowReach = std::max(0, static_cast<int>((idealWidth - 1) / 2));
    const int narrowWidth = 2 * narrowReach + 1;
    const qreal surplus = 4 * sigma * sigma + 1 - static_cast<qreal>(narrowWidth) * narrowWidth;
    const int wideCount = std::clamp(qRound(3 * surplus / (4.0 * narrowWidth + 4)), 0, 3);
    std::array<int, 3> reaches{};
    for (int index = 0; index < 3; ++index)
        reaches.at(static_cast<std::size_t>(index)) = narrowReach + (index < wideCount ? 1 : 0);
    return reaches;
}

/// Averages each pixel with its neighbors to the left and right, and transposes the result.
Field boxedAndTransposed(Field& field, int reach)
{
    Field result{field.height, field.width};
    const float weight = 1.0F / static_cast<float>(2 * reach + 1);
    // Zero padding of the box's reach on both sides avoids bounds checks in the loop.
    const auto margin = static_cast<std::size_t>(reach) + 1;
    std::vector<float> padded(static_cast<std::size_t>(field.width) + 2 * margin - 1);
    const auto row = std::next(padded.begin(), reach + 1);
    for (int y = 0; y < field.height; ++y) {
        std::copy_n(&field.at(0, y), field.width, row);
        float sum = std::accumulate(row, std::next(row, reach), 0.0F);
        auto leaving = padded.cbegin();
        auto entering = std::next(row, reach);
        for (int x = 0; x < field.width; ++x) {
            sum += *entering++;
            sum -= *leaving++;
            result.at(y, x) = sum * weight;
        }
    }
    return result;
}

} // namespace

QImage blurred(const QImage& mask, qreal sigma)
{
    Field field{mask.width(), mask.height()};
    for (int y = 0; y < field.height; ++y)
        std::copy_n(mask.constScanLine(y), field.width, &field.at(0, y));
    for (const int reach : boxReaches(sigma)) {
        Field columns = boxedAndTransposed(field, reach);
        field = boxedAndTransposed(columns, reach);
    }
    QImage result(mask.size(), QImage::Format_Alpha8);
    for (int y = 0; y < field.height; ++y) {
        uchar* line = result.scanLine(y);
        for (int x = 0; x < field.width; ++x)
            line[x] = static_cast<uchar>(std::clamp(std::lround(field.at(x, y)), 0L, 255L));
    }
    return result;
}

QImage tinted(const QImage& mask, const QColor& color)
{
    QImage result = mask.convertToFormat(QImage::Format_ARGB32_Premultiplied);
    QPainter painter(&result);
    painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
    painter.fillRect(result.rect(), color);
    return result;
}

} // namespace App::Design
