#include "ui/qt/ProgressLine.h"

#include <QPainter>
#include <algorithm>
#include <cmath>
#include <utility>

namespace qipg::internal {

class ProgressLine::Widget final : public QWidget {
 public:
  Widget(QWidget* bar, std::shared_ptr<ProgressLineState> state)
      : QWidget(bar), state_(std::move(state)) {
    setObjectName("qipg-progress-line");
    setAccessibleName("Loading");
    setAttribute(Qt::WA_TransparentForMouseEvents);
    setFocusPolicy(Qt::NoFocus);
  }
  const ProgressLineState& state() const { return *state_; }

 protected:
  void paintEvent(QPaintEvent*) override {
    QPainter painter(this);
    if (state_->style == ProgressViewStyle::Default) {  // a faint track under the progress
      painter.fillRect(rect(), QColor(0, 0, 0, 20));
    }
    const double fraction = std::clamp(static_cast<double>(state_->progress), 0.0, 1.0);
    const Color& c = state_->tint;
    painter.fillRect(QRect(0, 0, static_cast<int>(std::lround(width() * fraction)), height()),
                     QColor::fromRgbF(static_cast<float>(c.red), static_cast<float>(c.green),
                                      static_cast<float>(c.blue), static_cast<float>(c.alpha)));
  }

 private:
  std::shared_ptr<ProgressLineState> state_;
};

ProgressLine::ProgressLine(Widget* widget, std::shared_ptr<ProgressLineState> state)
    : ProgressLineBase(std::move(state)), widget_(widget) {}

std::shared_ptr<ProgressLine> ProgressLine::addTo(QWidget* bar) {
  auto state = std::make_shared<ProgressLineState>();
  auto* widget = new Widget(bar, state);
  widget->raise();
  widget->show();
  return std::shared_ptr<ProgressLine>(new ProgressLine(widget, std::move(state)));
}

void ProgressLine::placeAll(QWidget* bar) {
  for (QObject* child : bar->children()) {
    auto* line = dynamic_cast<Widget*>(child);
    if (line == nullptr) continue;
    const Rect place = line->state().placeIn(bar->width(), bar->height());
    line->setGeometry(static_cast<int>(std::lround(place.x)),
                      static_cast<int>(std::lround(place.y)),
                      static_cast<int>(std::lround(place.width)),
                      static_cast<int>(std::lround(place.height)));
  }
}

void ProgressLine::changed() {
  if (widget_ == nullptr) return;
  widget_->setVisible(!state_->hidden);
  widget_->update();
}

void ProgressLine::framed() {
  if (widget_ == nullptr) return;
  if (QWidget* bar = widget_->parentWidget()) {
    state_->barWidth = bar->width();
    state_->barHeight = bar->height();
    placeAll(bar);
  }
}

}  // namespace qipg::internal
