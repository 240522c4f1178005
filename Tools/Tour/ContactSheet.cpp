#include "Tools/Tour/ContactSheet.h"

#include <QGuiApplication>
#include <QImage>
#include <QPainter>

#include <algorithm>
#include <map>
#include <stdexcept>
#include <tuple>

namespace fs = std::filesystem;

namespace {

/// How much smaller the copies are: all of the sheet fits on a large screen, and cut or overlapping text is
/// still seen.
constexpr int reduction = 5;
constexpr int gap = 4;
constexpr int captionHeight = 22;
constexpr int captionPixelSize = 14;

std::size_t indexOf(std::vector<std::string>& names, const std::string& name)
{
    const auto found = std::find(names.begin(), names.end(), name);
    const auto index = static_cast<std::size_t>(found - names.begin());
    if (found == names.end())
        names.push_back(name);
    return index;
}

QImage smallCopy(const fs::path& file)
{
    const QImage picture(QString::fromStdString(file.native()));
    if (picture.isNull())
        throw std::runtime_error("cannot read " + file.native());
    return picture.scaled(picture.size() / reduction, Qt::KeepAspectRatio, Qt::SmoothTransformation);
}

bool isUpright(const QImage& picture)
{
    return picture.height() > picture.width();
}

/// Returns where each column or row starts, and at the end, where the last one ends.
std::vector<int> starts(const std::vector<int>& lengths)
{
    std::vector<int> positions{2 * gap};
    for (const int length : lengths)
        positions.push_back(positions.back() + length + 2 * gap);
    return positions;
}

} // namespace

void ContactSheet::add(const std::string& row, const std::string& column, fs::path picture)
{
    m_pictures.push_back({indexOf(m_rows, row), indexOf(m_columns, column), std::move(picture)});
}

void ContactSheet::save(const fs::path& file) const
{
    // In a cell, upright pictures are on the first line, the others on the second.
    std::vector<QImage> copies;
    std::vector<QPoint> offsets;
    std::vector<int> columnWidths(m_columns.size());
    std::vector<int> rowHeights(m_rows.size());
    std::vector<int> firstLineHeights(m_rows.size());
    for (const Picture& picture : m_pictures) {
        const QImage& copy = copies.emplace_back(smallCopy(picture.file));
        if (isUpright(copy))
            firstLineHeights[picture.row] = std::max(firstLineHeights[picture.row], copy.height() + gap);
    }
    std::map<std::tuple<std::size_t, std::size_t, bool>, int> lineWidths;
    for (std::size_t index = 0; index < copies.size(); ++index) {
        const std::size_t row = m_pictures[index].row;
        const std::size_t column = m_pictures[index].column;
        const bool isFirstLine = isUpright(copies[index]);
        int& width = lineWidths[{row, column, isFirstLine}];
        offsets.emplace_back(width, captionHeight + (isFirstLine ? 0 : firstLineHeights[row]));
        width += copies[index].width() + gap;
        columnWidths[column] = std::max(columnWidths[column], width);
        rowHeights[row] = std::max(rowHeights[row], offsets.back().y() + copies[index].height());
    }
    const std::vector<int> columnStarts = starts(columnWidths);
    const std::vector<int> rowStarts = starts(rowHeights);

    int argumentCount = 0;
    const QGuiApplication application(argumentCount, nullptr); // For fonts.
    QImage sheet(columnStarts.back(), rowStarts.back(), QImage::Format_RGB32);
    sheet.fill(QColor("#b8b8bc"));
    QPainter painter(&sheet);
    QFont font = painter.font();
    font.setPixelSize(captionPixelSize);
    painter.setFont(font);
    for (std::size_t index = 0; index < copies.size(); ++index) {
        const Picture& picture = m_pictures[index];
        const QPoint cell(columnStarts[picture.column], rowStarts[picture.row]);
        painter.drawText(cell + QPoint(0, captionPixelSize),
                         QString::fromStdString(m_columns[picture.column] + ": " + m_rows[picture.row]));
        painter.drawImage(cell + offsets[index], copies[index]);
    }
    painter.end();
    if (!sheet.save(QString::fromStdString(file.native()), "PNG"))
        throw std::runtime_error("cannot write " + file.native());
}
