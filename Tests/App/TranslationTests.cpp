#include "App/Translation.h"
#include "Platform/Desktop/Shell/Shell.h"
#include "Tests/App/ScreenTest.h"

#include <QDir>
#include <QTranslator>

namespace {

/// Removes the translators of a test.
struct UntranslatedApplication {
    ~UntranslatedApplication()
    {
        qDeleteAll(qApp->findChildren<QTranslator*>());
        QGuiApplication::setLayoutDirection(Qt::LeftToRight);
    }
};

TEST(TranslationTest, FirstPreferredLanguageWithTranslationIsChosen)
{
    const struct {
        QStringList languages;
        QString chosen, back;
        Qt::LayoutDirection direction = Qt::LeftToRight;
    } cases[] = {
        {{}, "", "Back"},
        {{"en-GB", "en", "de"}, "", "Back"},
        {{"pt-BR", "en", "es"}, "", "Back"},
        {{"C", "es"}, "", "Back"},
        {{"xx", "C", "es"}, "es", "Atrás"},
        {{"pt-BR", "pt", "es"}, "es", "Atrás"},
        {{"de-CH", "de"}, "de", "Zurück"},
        {{"ja-JP"}, "ja", "戻る"},
        {{"ar-Arab-EG", "ar"}, "ar", "رجوع", Qt::RightToLeft},
    };
    for (const auto& [languages, chosen, back, direction] : cases) {
        SCOPED_TRACE(languages.join(':').toStdString());
        const UntranslatedApplication cleanUp;
        EXPECT_EQ(installTranslation(*qGuiApp, languages), chosen);
        EXPECT_EQ(QCoreApplication::translate("NavigationDestination", "Back"), back);
        EXPECT_EQ(QGuiApplication::layoutDirection(), direction);
    }
}

/// A language with accents and strings that are at least 40 % longer, also in each word.
class PseudoLanguage final : public QTranslator {
public:
    PseudoLanguage() { QCoreApplication::installTranslator(this); }
    [[nodiscard]] bool isEmpty() const override { return false; }
    QString translate(const char*, const char* source, const char*, int) const override
    {
        const QString plain = QString::fromUtf8(source);
        const QRegularExpression vowel("([aeiou])", QRegularExpression::CaseInsensitiveOption);
        return QString(plain).replace(vowel, "á\\1").leftJustified(plain.size() * 7 / 5 + 1, u'á');
    }
};

/// Opens every screen, the system's included.
class TranslatedScreenTest : public ScreenTest, protected NotificationPreferences {
protected:
    void visitScreens(QSize size, const std::function<void(const std::string& screen)>& visit)
    {
        open(Screen::welcome, size);
        visit("welcome");
        open(Screen::dashboard, size);
        visit("dashboard");
        for (const Card card : {Card::Sso, Card::RemoteCasting, Card::Notifications}) {
            openCard(card);
            visit("card " + std::to_string(int(card)));
            content->dashboard()->goBack();
        }
        Desktop::Shell shell({*this, scheduler}, "Quorvane MDM");
        shell.setAppearance({.isMotionReduced = true, .textScale = appearance.textScale()});
        shell.attach(*window.engine(), window);
        shell.requestPermission([](bool) {});
        settle();
        EXPECT_NE(item("shell.allow"), nullptr);
        visit("prompt");
        shell.permission()->answer(true);
        settle();
        // The button opens the settings through the application, which is a fake here.
        QQuickItem* const button = item("dashboard.openSettings");
        QAccessible::queryAccessibleInterface(button)->actionInterface()->doAction("Press");
        shell.openSettings();
        settle();
        EXPECT_NE(item("shell.settings.done"), nullptr);
        visit("settings");
        shell.settings()->close();
        settle();
        EXPECT_TRUE(button->hasActiveFocus());
    }
    [[nodiscard]] AuthorizationStatus authorizationStatus() const override { return {}; }
    void setAllowed(bool) override {}
    [[nodiscard]] std::string notificationServer() const override { return {}; }
    [[nodiscard]] std::string pushSource() const override { return "UnifiedPush"; }

    const UntranslatedApplication cleanUp{};
};

TEST_F(TranslatedScreenTest, PseudoLanguageFindsNoUnmarkedString)
{
    const PseudoLanguage language;
    const QStringList untranslated{"", "Quorvane MDM", "UnifiedPush", "Q"};
    visitScreens({390, 844}, [&](const std::string& screen) {
        for (QQuickItem* each : itemsBelow(window.contentItem())) {
            QStringList strings{each->property("text").toString()};
            // Null if screen readers ignore the item.
            if (const auto* accessible = QAccessible::queryAccessibleInterface(each); accessible != nullptr)
                strings << accessible->text(QAccessible::Name) << accessible->text(QAccessible::Description);
            for (const QString& text : strings)
                EXPECT_TRUE(!each->isVisible() || untranslated.contains(text) || text.contains(u'á'))
                    << screen << ": " << qPrintable(text);
        }
    });
}

TEST_F(TranslatedScreenTest, NoLanguageIsCutBrokenOrTiny)
{
    const auto expectWholeTexts = [&](QSize size, const char* exception = "none") {
        visitScreens(size, [&](const std::string& screen) {
            SCOPED_TRACE(screen);
            for (const QQuickItem* text : visibleTexts(window)) {
                EXPECT_GE(text->property("font").value<QFont>().pixelSize(), 9);
                if (text->objectName() != exception)
                    expectWhole(text);
                else
                    EXPECT_LE(text->height(), text->property("room").toReal()) << "it is cut between lines";
            }
        });
    };
    const QStringList files = QDir(":/Quorvane/Translations").entryList() << "pseudo";
    for (const QString& file : files) {
        SCOPED_TRACE(file.toStdString());
        const UntranslatedApplication translated;
        const bool isPseudo = installTranslation(*qGuiApp, {file.section('.', 0, 0)}).isEmpty();
        const auto pseudo = isPseudo ? std::make_unique<PseudoLanguage>() : nullptr;
        // Longer than any language: at the normal text size, a card may have no room for its description.
        expectWholeTexts({390, 844}, isPseudo ? "description" : "none");
        if (!isPseudo)
            expectWholeTexts({320, 568});
        appearance.set({.textScale = 2});
        expectWholeTexts({320, 568});
        appearance.set({});
    }
}

TEST_F(TranslatedScreenTest, RightToLeftLayoutMirrorsEveryItem)
{
    for (const QSize size : {QSize(390, 844), QSize(1024, 768)}) {
        std::map<std::string, std::vector<QRectF>> expected;
        const auto visit = [&](const std::string& screen) {
            const bool isMirrored = QGuiApplication::isRightToLeft();
            SCOPED_TRACE(screen + (isMirrored ? " mirrored" : ""));
            const QQuickItem* const button = item("welcome.button");
            const char* const gradient = isMirrored ? "#ccff9500, to #ff9500" : "#ff9500, to #ccff9500";
            EXPECT_TRUE(button == nullptr || look(button).starts_with(gradient));
            std::vector<QRectF> rects;
            for (QQuickItem* each : itemsBelow(window.contentItem())) {
                const QVariant direction = each->property("isRightToLeft");
                EXPECT_TRUE(!direction.isValid() || direction == isMirrored) << "a symbol";
                const auto font = each->property("font").value<QFont>();
                EXPECT_TRUE(!isMirrored || font.letterSpacing() == 0) << "joined letters";
                const QRectF rect = each->mapRectToScene(each->boundingRect());
                // Letter spacing differs between the directions.
                if (each->isVisible() && !rect.isEmpty() && !each->inherits("QQuickText"))
                    rects.push_back(rect);
            }
            if (!isMirrored) {
                expected[screen] = rects;
                return;
            }
            ASSERT_EQ(rects.size(), expected[screen].size());
            for (std::size_t index = 0; index < rects.size(); ++index)
                EXPECT_NEAR(size.width() - rects[index].right(), expected[screen][index].left(), 4);
        };
        for (const auto direction : {Qt::LeftToRight, Qt::RightToLeft}) {
            QGuiApplication::setLayoutDirection(direction);
            visitScreens(size, visit);
        }
    }
}

} // namespace
