#pragma once

#include <QImage>

class QColor;

namespace App::Design {

/// Masks are images of the format `QImage::Format_Alpha8`: how much of each pixel is covered.
///
/// Threads: any.

/// The mask under a Gaussian of that standard deviation, in pixels; what spreads beyond the image is lost.
/// Three box filters approximate the bell curve: they cost the same however wide it is.
QImage blurred(const QImage& mask, qreal sigma);

/// A single color, as opaque as the mask and the color's own alpha make it.
QImage tinted(const QImage& mask, const QColor& color);

} // namespace App::Design
