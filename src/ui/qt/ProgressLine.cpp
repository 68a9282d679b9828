#include "ui/qt/ProgressLine.h"

#include <QPainter>
#include <algorithm>
#include <cmath>
#include <utility>

#include "ui/window/Layout.h"

namespace qipg::internal {

struct ProgressLine::State {
  float progress = 0.0f;
  bool hidden = false;
  ProgressViewStyle style = ProgressViewStyle::Default;
  Color tint = Color::systemBlue();
  unsigned mask = AutoresizingNone;
  Rect frame;
  // The bar's size when the frame was set: growth since then is shared out by the mask.
  double barWidth = 0.0;
  double barHeight = 0.0;
};

class ProgressLine::Widget final : public QWidget {
 public:
  Widget(QWidget* bar, std::shared_ptr<State> state) : QWidget(bar), state_(std::move(state)) {
    setObjectName("qipg-progress-line");
    setAttribute(Qt::WA_TransparentForMouseEvents);
    setFocusPolicy(Qt::NoFocus);
  }
  const State& state() const { return *state_; }

 protected:
  void paintEvent(QPaintEvent*) override {
    QPainter painter(this);
    if (state_->style == ProgressViewStyle::Default) {  // a faint track under the progress
      painter.fillRect(rect(), QColor(0, 0, 0, 20));
    }
    const double fraction = std::clamp(static_cast<double>(state_->progress), 0.0, 1.0);
    const Color& c = state_->tint;
    painter.fillRect(QRect(0, 0, static_cast<int>(std::lround(width() * fraction)), height()),
                     QColor::fromRgbF(c.red, c.green, c.blue, c.alpha));
  }

 private:
  std::shared_ptr<State> state_;
};

ProgressLine::ProgressLine(Widget* widget, std::shared_ptr<State> state)
    : widget_(widget), state_(std::move(state)) {}

std::shared_ptr<ProgressLine> ProgressLine::addTo(QWidget* bar) {
  auto state = std::make_shared<State>();
  auto* widget = new Widget(bar, state);
  widget->raise();
  widget->show();
  return std::shared_ptr<ProgressLine>(new ProgressLine(widget, std::move(state)));
}

void ProgressLine::placeAll(QWidget* bar) {
  for (QObject* child : bar->children()) {
    auto* line = dynamic_cast<Widget*>(child);
    if (line == nullptr) continue;
    const State& s = line->state();
    const Rect place = autoresized(s.frame, s.mask, s.barWidth, s.barHeight, bar->width(),
                                   bar->height());
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

void ProgressLine::setProgress(float progress) {
  state_->progress = progress;
  changed();
}
float ProgressLine::progress() const { return state_->progress; }

void ProgressLine::setHidden(bool hidden) {
  state_->hidden = hidden;
  changed();
}
bool ProgressLine::isHidden() const { return state_->hidden; }

void ProgressLine::setProgressViewStyle(ProgressViewStyle style) {
  state_->style = style;
  changed();
}

void ProgressLine::setTintColor(const Color& color) {
  state_->tint = color;
  changed();
}

void ProgressLine::setAutoresizingMask(unsigned mask) { state_->mask = mask; }

void ProgressLine::setFrame(const Rect& frame) {
  state_->frame = frame;
  if (widget_ == nullptr) return;
  if (QWidget* bar = widget_->parentWidget()) {
    state_->barWidth = bar->width();
    state_->barHeight = bar->height();
    placeAll(bar);
  }
}

}  // namespace qipg::internal
