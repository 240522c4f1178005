#pragma once

#include "App/FeatureDetail.h"

namespace App {

/// The detail screen that explains single sign-on. Threads: main.
class SSODetailView : public App::FeatureDetail {
    Q_OBJECT
    QML_NAMED_ELEMENT(SSODetailViewModel)

public:
    explicit SSODetailView(QObject* parent = nullptr);
};

} // namespace App
