#pragma once

#include <QImage>

class QColor;

namespace App::Design {

/// Masks are images of the format `QImage::Format_Alpha8`: how much of each pixel is covered.
///
/// Threads: any.

/// The mask under a Gaussian of that standard deviation, in pixels; what it spreads beyond the image is lost.
/// Three box filters stand in for the bell curve: they cost the same however wide it is.
QImage blurred(const QImage& mask, qreal sigma);

/// A single colour, as opaque as the mask and the colour's own alpha make it.
QImage tinted(const QImage& mask, const QColor& color);

} // namespace App::Design
