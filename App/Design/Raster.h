#pragma once

#include <QImage>

class QColor;

namespace App::Design {

// A mask is an image of the format `QImage::Format_Alpha8`: the coverage of each pixel. Threads: any.

/// Blurs a mask with an approximate Gaussian of the standard deviation `sigma`, in pixels. The result has the
/// same size; the cost does not depend on `sigma`.
QImage blurred(const QImage& mask, qreal sigma);

/// Fills `mask` with a color; the mask scales the color's alpha.
QImage tinted(const QImage& mask, const QColor& color);

} // namespace App::Design
