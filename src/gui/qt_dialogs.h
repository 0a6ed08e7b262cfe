#pragma once
// The Dialogs seam drawn with Qt's standard boxes and pickers.
#include <QPointer>
#include <QWidget>
#include <functional>

#include "platform/dialogs.h"

namespace qr::gui {

// CR LF (and a lone CR) as the LF that Qt's labels break lines at.
QString DisplayText(const std::string& text);

class QtDialogs : public Dialogs {
 public:
  explicit QtDialogs(QWidget* parent = nullptr) : parent_(parent) {}
  void setParent(QWidget* parent) { parent_ = parent; }
  // Called before any box opens, so that the window behind it shows the current state.
  void setBeforeShow(std::function<void()> hook) { beforeShow_ = std::move(hook); }

  Answer MessageBox(const std::string& text, const std::string& title, Icon icon,
                    Buttons buttons) override;
  std::optional<std::string> InputBox(const std::string& prompt, const std::string& title,
                                      const std::string& defaultText) override;
  std::string OpenFile(const std::string& title, const std::string& filter,
                       const std::string& startFolder) override;
  std::string SaveFile(const std::string& title, const std::string& filter,
                       const std::string& startFolder) override;
  std::string PickFolder(const std::string& title, const std::string& startFolder) override;

 private:
  void BeforeShow();
  QPointer<QWidget> parent_;
  std::function<void()> beforeShow_;
};

}  // namespace qr::gui
