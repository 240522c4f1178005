#include "App/Design/PatchedItem.h"

#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickView>
#include <QVector3D>
#include <gmock/gmock.h>

#include <memory>
#include <string>
#include <vector>

/// Counts how often its picture is made.
class CountingItem final : public App::Design::PatchedItem {
public:
    using PatchedItem::itemChange;
    mutable int count = 0;

private:
    [[nodiscard]] Patches makePatches() const override { return ++count, Patches(); }
};

/// Moving the window to another screen of the offscreen platform would also resize it, and hide the fault.
TEST(DesignTests, MakesANewPictureForAnotherPixelRatio)
{
    QQuickView view;
    CountingItem item;
    item.setParentItem(view.contentItem());
    item.setSize({9, 9});
    view.grabWindow();
    EXPECT_EQ(item.count, 1);
    item.itemChange(QQuickItem::ItemDevicePixelRatioHasChanged, 3.0);
    view.grabWindow();
    EXPECT_EQ(item.count, 2);
}

/// Drawn in a white window of 60 by 60 points at two pixels per point.
static const struct {
    const char* qml;
    std::vector<std::pair<QPoint, QColor>> pixels;
    const char* warning = "";
} drawings[] = {
    {"Panel { x: 5; width: 41; height: 31; radius: 99; color: 'blue'; borderWidth: 1.5; borderColor: 'red' }",
     {{{10, 1}, "white"}, {{9, 30}, "white"}, {{10, 30}, "red"}, {{12, 30}, "red"}, {{13, 30}, "blue"}}},
    {"Panel { width: 40; height: 30; radius: 10; color: 'blue'; borderWidth: 1.5; borderColor: 'red' }",
     {{{6, 6}, "red"}}},
    {"Panel { width: 60; height: 9; color: 'red'; endColor: 'lime'; gradientDirection: Panel.Horizontal }",
     {{{2, 9}, "#fa0500"}, {{60, 9}, "#7e8100"}, {{117, 9}, "#05fa00"}}},
    {"NinePatchShadow { x: 15; y: 9; width: 40; height: 40; blurRadius: 4; color: 'black'; offset.y: -5 }",
     {{{29, 48}, "#8c8c8c"}, {{30, 48}, "#737373"}, {{60, 8}, "#737373"}, {{60, 60}, "black"}}},
    {"Surface { x: 15; y: 9; width: 40; height: 40; color: 'red'; shadow: ShadowStyle {"
     "color: 'blue'; blurRadius: 4; offset: Qt.point(0, -5) } }", // Not the picture of the row above.
     {{{29, 48}, "#8c8cff"}, {{60, 60}, "red"}, {{60, 8}, "#7373ff"}}},
    {"Logo { x: 20; size: 20; shadow: ShadowStyle { color: 'red'; blurRadius: 4; offset: Qt.point(0, 30) } }",
     {{{60, 80}, "red"}, {{37, 80}, "#ffcdcd"}, {{20, 20}, "white"}}},
    {"Symbol { name: 'arrow.right'; pointSize: 20; color: 'red'; isRightToLeft: true }",
     {{{21, 11}, "red"}, {{28, 11}, "white"}}},
    {"Symbol { name: 'arrow.right'; pointSize: 20; color: '#80ff0000'; isRightToLeft: true }",
     {{{21, 11}, "#ff7f7f"}}}, // Not the picture of the row above.
    {"Symbol { name: 'bell.badge'; pointSize: 20; color: 'red'; isRightToLeft: true }",
     {{{11, 19}, "red"}, {{28, 7}, "white"}, {{35, 11}, "red"}}}, // Bell, gap, badge.
    {"Symbol { name: 'chevron.right'; pointSize: 20; color: 'red' }",
     {{{30, 23}, "red"}, {{16, 23}, "white"}}},
    {"Symbol { name: 'chevron.right'; pointSize: 20; color: 'red'; isRightToLeft: true }",
     {{{16, 23}, "red"}, {{30, 23}, "white"}}},
    {"Symbol { name: 'no.such' }", {{{18, 18}, "white"}}, ".*no\\.such.*"},
    {"Rectangle { color: 'red'; height: 9 * TextFit.wholeWords('a', Qt.font({pixelSize: 20}), 1).pixelSize;"
     "width: TextFit.oneLine('a b c d e f g h i j', Qt.font({pixelSize: 20}), 30, 0.5).pixelSize }",
     {{{19, 9}, "red"}, {{20, 9}, "white"}, {{19, 17}, "red"}, {{19, 18}, "white"}}},
    // The balanced lines of four words have two words each.
    {"Rectangle { height: 9; width: 9; Text { id: two; text: 'i i'; font.pixelSize: 20; visible: false }"
     "Text { id: three; text: 'i i i'; font: two.font; visible: false } color: "
     "Math.abs(TextFit.balancedWidth("
     "'i i i i', two.font, three.implicitWidth + 2) - two.implicitWidth) < 3 ? 'red' : 'blue' }",
     {{{9, 9}, "red"}}},
    {"Rectangle { width: Theme.type.body.pixelSize; height: 9 + Theme.motion.push; color: Theme.color.orange;"
     "Component.onCompleted: { Theme.isDark = true; Theme.isMotionReduced = true; Theme.textScale = 5 } }",
     {{{67, 17}, "#ff9f0a"}, {{68, 17}, "white"}, {{67, 18}, "white"}}},
};

TEST(DesignTests, DrawsExpectedPixels)
{
    const auto vector = [](QColor color) { return QVector3D(color.redF(), color.greenF(), color.blueF()); };
    for (const auto& [qml, pixels, warning] : drawings) {
        QQuickView view;
        view.resize(60, 60);
        view.engine()->addImportPath("qrc:/qt/qml");
        view.engine()->setOutputWarningsToStandardError(false);
        std::string warnings;
        QObject::connect(view.engine(), &QQmlEngine::warnings,
                         [&](const auto& errors) { warnings += errors.first().description().toStdString(); });
        QQmlComponent component(view.engine());
        component.setData(QByteArray("import QtQuick\nimport Quorvane.Design\n") + qml, QUrl());
        const std::unique_ptr<QQuickItem> item(qobject_cast<QQuickItem*>(component.create()));
        ASSERT_TRUE(item) << component.errorString().toStdString();
        item->setParentItem(view.contentItem());
        for (const QImage image = view.grabWindow(); const auto& [at, color] : pixels)
            EXPECT_LT(vector(image.pixelColor(at)).distanceToPoint(vector(color)), 0.04) << qml << at.x();
        EXPECT_THAT(warnings, testing::MatchesRegex(warning));
    }
}
