#include "ui/qt/ProgressLine.h"

#include <QAccessible>
#include <QAccessibleValueInterface>
#include <QAccessibleWidget>
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

namespace {

// The line as assistive technology sees it: a progress bar from 0 to 1 whose value is the
// line's progress (read only).
class AccessibleLine final : public QAccessibleWidget, public QAccessibleValueInterface {
 public:
  explicit AccessibleLine(ProgressLine::Widget* line)
      : QAccessibleWidget(line, QAccessible::ProgressBar), line_(line) {}
  void* interface_cast(QAccessible::InterfaceType type) override {
    if (type == QAccessible::ValueInterface) return static_cast<QAccessibleValueInterface*>(this);
    return QAccessibleWidget::interface_cast(type);
  }
  QVariant currentValue() const override;
  void setCurrentValue(const QVariant&) override {}
  QVariant maximumValue() const override { return 1.0; }
  QVariant minimumValue() const override { return 0.0; }
  QVariant minimumStepSize() const override { return 0.0; }

 private:
  const ProgressLine::Widget* line_;  // Qt deletes this interface with its widget
};

QAccessibleInterface* accessibleLine(const QString&, QObject* object) {
  auto* line = dynamic_cast<ProgressLine::Widget*>(object);
  return line != nullptr ? new AccessibleLine(line) : nullptr;
}

}  // namespace

QVariant AccessibleLine::currentValue() const {
  return static_cast<double>(line_->state().progress);
}

ProgressLine::ProgressLine(Widget* widget, std::shared_ptr<ProgressLineState> state)
    : ProgressLineBase(std::move(state)), widget_(widget) {}

std::shared_ptr<ProgressLine> ProgressLine::addTo(QWidget* bar, const std::string& name) {
  static const bool factoryInstalled = [] {
    QAccessible::installFactory(&accessibleLine);
    return true;
  }();
  static_cast<void>(factoryInstalled);
  auto state = std::make_shared<ProgressLineState>();
  auto* widget = new Widget(bar, state);
  widget->setAccessibleName(QString::fromStdString(name));
  widget->raise();
  widget->show();
  return std::shared_ptr<ProgressLine>(new ProgressLine(widget, std::move(state)));
}

void ProgressLine::placeAll(QWidget* bar) {
  for (QObject* child : bar->children()) {
    auto* line = dynamic_cast<Widget*>(child);
    if (line == nullptr) continue;
    const Rect place = line->state().placeIn(bar->width(), bar->height());
    line->setGeometry(
        static_cast<int>(std::lround(place.x)), static_cast<int>(std::lround(place.y)),
        static_cast<int>(std::lround(place.width)), static_cast<int>(std::lround(place.height)));
  }
}

void ProgressLine::changed() {
  if (widget_ == nullptr) return;
  widget_->setVisible(!state_->hidden);
  widget_->update();
  // Announced to assistive technology as the load goes on.
  QAccessibleValueChangeEvent event(widget_, static_cast<double>(state_->progress));
  QAccessible::updateAccessibility(&event);
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
