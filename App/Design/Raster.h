#pragma once

#include <QImage>
#include <QRectF>

class QColor;

namespace App::Design {

/// Masks are images of the format `QImage::Format_Alpha8`: how much of each pixel is covered. They are
/// counted out here because the toolkit's painter hands a shape of some dozen rows to a pool of threads and
/// waits for them.
///
/// Threads: any.

/// A rectangle with round corners, all in pixels; `radius` is at most half of the shorter side. Nothing when
/// `area` is empty.
QImage roundedRectangle(const QSize& size, const QRectF& area, qreal radius);

/// What `mask` covers and `hole`, of the same size, does not.
QImage without(const QImage& mask, const QImage& hole);

/// The mask under a Gaussian of that standard deviation, in pixels; what it spreads beyond the image is lost.
/// Three box filters stand in for the bell curve: they cost the same however wide it is.
QImage blurred(const QImage& mask, qreal sigma);

/// A single colour, as opaque as the mask and the colour's own alpha make it.
QImage tinted(const QImage& mask, const QColor& color);

/// From one colour at the left or upper edge to the other at the opposite one.
QImage tinted(const QImage& mask, const QColor& start, const QColor& end, Qt::Orientation direction);

} // namespace App::Design
