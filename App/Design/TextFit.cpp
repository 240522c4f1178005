#include "App/Design/TextFit.h"

#include <QFontMetricsF>
#include <QList>
#include <QTextBoundaryFinder>
#include <QTextLayout>

#include <algorithm>
#include <cmath>

namespace App::Design {

namespace {

/// For the rounding of the text layout.
constexpr qreal slack = 1;

/// Text that stays on one line: a word, a part of a hyphenated word, or a character of Japanese.
struct Piece {
    /// Without the spaces at its end.
    qreal width;
    qreal spaceWidth;
};

QList<Piece> pieces(const QString& text, const QFont& font)
{
    const QFontMetricsF metrics(font);
    QList<Piece> found;
    QTextBoundaryFinder finder(QTextBoundaryFinder::Line, text);
    for (qsizetype start = 0, end = 0; (end = finder.toNextBoundary()) > start; start = end) {
        const QString piece = text.sliced(start, end - start);
        const QString word = piece.trimmed();
        found.append({.width = metrics.horizontalAdvance(word),
                      .spaceWidth = word.size() < piece.size() ? metrics.horizontalAdvance(u' ') : 0});
    }
    return found;
}

qreal widest(const QList<Piece>& all)
{
    qreal width = 0;
    for (const Piece& piece : all)
        width = std::max(width, piece.width);
    return width;
}

QFont scaled(const QFont& font, qreal scale)
{
    QFont smaller = font;
    smaller.setPixelSize(std::max(1, static_cast<int>(font.pixelSize() * scale)));
    smaller.setLetterSpacing(font.letterSpacingType(),
                             font.letterSpacing() * smaller.pixelSize() / font.pixelSize());
    return smaller;
}

/// Returns how many lines the wrapped pieces need.
int lineCount(const QList<Piece>& all, qreal width)
{
    int count = 1;
    qreal end = 0;
    qreal space = 0;
    for (const Piece& piece : all) {
        if (end > 0 && end + space + piece.width > width) {
            ++count;
            end = 0;
            space = 0;
        }
        end += space + piece.width;
        space = piece.spaceWidth;
    }
    return count;
}

qreal wrappedHeight(const QString& text, const QFont& font, qreal width)
{
    QTextLayout layout(text, font);
    layout.setTextOption(QTextOption(Qt::AlignLeft));
    qreal height = 0;
    layout.beginLayout();
    for (QTextLine line = layout.createLine(); line.isValid(); line = layout.createLine()) {
        line.setLineWidth(width);
        height += line.height();
    }
    layout.endLayout();
    return height;
}

} // namespace

QFont TextFit::wholeWords(const QString& text, const QFont& font, qreal width)
{
    qsizetype length = 0;
    qsizetype longest = 0;
    for (const QChar character : text) {
        length = character == u' ' ? 0 : length + 1;
        longest = std::max(longest, length);
    }
    // Few characters are wider than the font's size: most strings need no measurement.
    if (width <= 0 || font.pixelSize() <= 0 || static_cast<qreal>(longest * font.pixelSize()) <= width)
        return font;
    const qreal needed = widest(pieces(text, font)) + slack;
    return needed <= width ? font : scaled(font, (width - slack) / (needed - slack));
}

QFont TextFit::oneLine(const QString& text, const QFont& font, qreal width, qreal minimumScale)
{
    if (width <= 0 || font.pixelSize() <= 0)
        return font;
    const qreal scale = (width - slack) / QFontMetricsF(font).horizontalAdvance(text);
    if (scale >= 1)
        return font;
    const int minimumSize = static_cast<int>(std::ceil(font.pixelSize() * minimumScale));
    QFont smaller = scaled(font, scale);
    if (smaller.pixelSize() < minimumSize)
        smaller = scaled(font, (minimumSize + 0.5) / font.pixelSize());
    return wholeWords(text, smaller, width);
}

QFont TextFit::inBox(const QString& text, const QFont& font, const QSizeF& size, qreal minimumScale)
{
    if (size.width() <= 0 || font.pixelSize() <= 0)
        return font;
    const auto isTooHigh = [&](const QFont& tried) {
        return wrappedHeight(text, tried, size.width()) > size.height();
    };
    const int minimumSize = static_cast<int>(std::ceil(font.pixelSize() * minimumScale));
    QFont smaller = wholeWords(text, font, size.width());
    while (smaller.pixelSize() > minimumSize && isTooHigh(smaller))
        smaller = scaled(font, (smaller.pixelSize() - 0.5) / font.pixelSize());
    return smaller;
}

qreal TextFit::balancedWidth(const QString& text, const QFont& font, qreal width)
{
    if (width <= 0)
        return width;
    const QList<Piece> all = pieces(text, font);
    const int count = lineCount(all, width - slack);
    if (count == 1)
        return width;
    qreal tooNarrow = 0;
    qreal enough = width - slack;
    while (enough - tooNarrow > 1) {
        const qreal middle = (tooNarrow + enough) / 2;
        const bool isEnough = middle >= widest(all) && lineCount(all, middle) <= count;
        (isEnough ? enough : tooNarrow) = middle;
    }
    return std::min(width, std::ceil(enough + slack));
}

} // namespace App::Design
