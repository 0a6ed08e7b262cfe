#include <QApplication>
#include <cstring>
#include <iostream>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "exec/startup.h"
#include "job_picker.h"
#include "main_window.h"
#include "options_dialog.h"
#include "platform/device_env.h"
#include "qt_dialogs.h"
#include "qt_event_pump.h"
#include "run/run_context.h"
#include "screenshots.h"
#include "window_registry.h"

int main(int argc, char** argv) {
  // --screenshots DIR renders every window without a display: offscreen, unless told otherwise.
  const char* screenshots = nullptr;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--screenshots") == 0) {
      if (i + 1 >= argc) {
        std::cerr << "usage: quillon-ravelin --screenshots DIR\n";
        return 64;
      }
      screenshots = argv[i + 1];
    }
  }
  if (screenshots != nullptr && qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
  }

  QApplication app(argc, argv);  // takes Qt's own switches out of argv
  if (screenshots != nullptr) return qr::gui::TakeScreenshots(screenshots, std::cout, std::cerr);

  qr::gui::QtEventPump pump;
  qr::gui::QtDialogs dialogs;
  qr::RunContext ctx(dialogs, pump);

  // The options dialog loads before the settings files are read, so that they overwrite it;
  // its drops reach the main window once there is one.
  auto options = std::make_unique<qr::gui::OptionsDialog>(ctx, nullptr);
  qr::StartupInputs inputs;
  inputs.args.assign(argv + 1, argv + argc);
  inputs.environment = qr::ProcessEnvironment();
  inputs.singleInstance = true;
  inputs.loadOptions = [&options] { options->Load(); };
  qr::StartupResult started = qr::Startup(ctx, inputs);
  if (started.endProgram) return 1;

  qr::gui::WindowRegistry windows;
  qr::gui::MainWindow window(ctx, windows, std::move(options));
  dialogs.setParent(&window);
  // A box, and each pump of a run, first brings every open window up to date.
  dialogs.setBeforeShow([&windows] { windows.RefreshAll(); });
  pump.setRefresh([&windows] { windows.RefreshAll(); });
  QObject::connect(&window, &qr::gui::MainWindow::programEndRequested, &app,
                   [] { QCoreApplication::exit(0); });
  // Started as the autorun file starts it (-as, -q), the end user sees the job picker alone.
  std::unique_ptr<qr::gui::JobPicker> picker = qr::gui::JobPicker::OpenAtStart(ctx, window, windows);
  if (picker) {
    dialogs.setParent(picker.get());
    QObject::connect(picker.get(), &qr::gui::JobPicker::programEndRequested, &app,
                     [] { QCoreApplication::exit(0); });
  } else {
    window.show();
  }

  int status = app.exec();
  // A run that ended the program (-silent, -q) leaves the settings as they were; so does the
  // picker, whose jobs' options are not the program's own.
  if (!window.endedByRun() && !(picker && picker->endedProgram())) qr::SaveOnClose(ctx);
  return status;
}
