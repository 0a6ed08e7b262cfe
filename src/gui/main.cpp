#include <QApplication>
#include <string>
#include <vector>

#include "main_window.h"
#include "platform/device_env.h"
#include "qt_dialogs.h"
#include "qt_event_pump.h"
#include "exec/startup.h"
#include "run/run_context.h"

int main(int argc, char** argv) {
  QApplication app(argc, argv);  // takes Qt's own switches out of argv

  qr::gui::QtEventPump pump;
  qr::gui::QtDialogs dialogs;
  qr::RunContext ctx(dialogs, pump);

  qr::StartupInputs inputs;
  inputs.args.assign(argv + 1, argv + argc);
  inputs.environment = qr::ProcessEnvironment();
  inputs.singleInstance = true;
  qr::StartupResult started = qr::Startup(ctx, inputs);
  if (started.endProgram) return 1;

  qr::gui::MainWindow window(ctx);
  dialogs.setParent(&window);
  dialogs.setBeforeShow([&window] { window.Refresh(); });
  pump.setRefresh([&window] { window.Refresh(); });
  QObject::connect(&window, &qr::gui::MainWindow::programEndRequested, &app,
                   [] { QCoreApplication::exit(0); });
  window.show();

  int status = app.exec();
  // A run that ended the program (-silent, -q) leaves the settings as they were.
  if (!window.endedByRun()) qr::SaveOnClose(ctx);
  return status;
}
