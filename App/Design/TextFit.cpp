#include "App/Design/TextFit.h"

#include <QFontMetricsF>
#include <QList>
#include <QStringList>

#include <algorithm>
#include <cmath>

namespace App::Design {

namespace {

/// For the rounding of the text layout.
constexpr qreal slack = 1;

QStringList words(const QString& text)
{
    return text.split(u' ', Qt::SkipEmptyParts);
}

QFont scaled(const QFont& font, qreal scale)
{
    QFont smaller = font;
    smaller.setPixelSize(std::max(1, static_cast<int>(font.pixelSize() * scale)));
    smaller.setLetterSpacing(font.letterSpacingType(),
                             font.letterSpacing() * smaller.pixelSize() / font.pixelSize());
    return smaller;
}

/// Returns how many lines wrapped words need. A space is as wide as `space`.
int lineCount(const QList<qreal>& wordWidths, qreal space, qreal width)
{
    int count = 1;
    qreal end = 0;
    for (const qreal word : wordWidths) {
        if (end > 0 && end + space + word > width) {
            ++count;
            end = word;
        } else {
            end += (end > 0 ? space : 0) + word;
        }
    }
    return count;
}

} // namespace

QFont TextFit::wholeWords(const QString& text, const QFont& font, qreal width)
{
    const QStringList all = words(text);
    qsizetype longest = 0;
    for (const QString& word : all)
        longest = std::max(longest, word.size());
    // Few characters are wider than the font's size: most strings need no measurement.
    if (width <= 0 || font.pixelSize() <= 0 || static_cast<qreal>(longest * font.pixelSize()) <= width)
        return font;
    const QFontMetricsF metrics(font);
    qreal widest = 0;
    for (const QString& word : all)
        widest = std::max(widest, metrics.horizontalAdvance(word));
    return widest + slack <= width ? font : scaled(font, (width - slack) / widest);
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

qreal TextFit::balancedWidth(const QString& text, const QFont& font, qreal width)
{
    if (width <= 0)
        return width;
    const QFontMetricsF metrics(font);
    const qreal space = metrics.horizontalAdvance(u' ');
    QList<qreal> wordWidths;
    for (const QString& word : words(text))
        wordWidths += metrics.horizontalAdvance(word);
    const int count = lineCount(wordWidths, space, width - slack);
    if (count == 1)
        return width;
    qreal tooNarrow = 0;
    qreal enough = width - slack;
    while (enough - tooNarrow > 1) {
        const qreal middle = (tooNarrow + enough) / 2;
        const bool isEnough = middle >= *std::max_element(wordWidths.cbegin(), wordWidths.cend()) &&
                              lineCount(wordWidths, space, middle) <= count;
        (isEnough ? enough : tooNarrow) = middle;
    }
    return std::min(width, std::ceil(enough + slack));
}

} // namespace App::Design
