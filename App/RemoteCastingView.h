#pragma once

#include "App/FeatureDetail.h"
#include "App/PresentationMode.h"

namespace App {

/// The detail screen that announces remote casting. Threads: main.
class RemoteCastingView : public App::FeatureDetail {
    Q_OBJECT
    QML_NAMED_ELEMENT(RemoteCastingViewModel)
    Q_PROPERTY(App::PresentationMode* presentationMode MEMBER m_presentationMode NOTIFY
                   presentationModeChanged FINAL)

public:
    explicit RemoteCastingView(QObject* parent = nullptr);

Q_SIGNALS:
    void presentationModeChanged();

private:
    /// Unused: the screen has no control that dismisses it.
    PresentationMode* m_presentationMode = nullptr;
};

} // namespace App
