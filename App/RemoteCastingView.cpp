#include "App/RemoteCastingView.h"

namespace App {

RemoteCastingView::RemoteCastingView(QObject* parent)
    : FeatureDetail("tv.and.mediabox", tr("Remote Casting"),
                    tr("Cast content to external displays. Coming soon."), parent)
{}

} // namespace App
