#pragma once

#include "App/FeatureDetail.h"

namespace App {

/// Single sign-on: who does it, and when. Threads: main.
class SSODetailView : public App::FeatureDetail {
    Q_OBJECT
    QML_NAMED_ELEMENT(SSODetailViewModel)

public:
    explicit SSODetailView(QObject* parent = nullptr);
};

} // namespace App
