#include "screenshots.h"

#include <QApplication>
#include <QLineEdit>
#include <QListWidget>
#include <QPixmap>
#include <QTemporaryDir>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <optional>
#include <tuple>
#include <utility>

#include "exec/startup.h"
#include "file_finder.h"
#include "file_type_picker.h"
#include "jobdef/job_file.h"
#include "jobdef/source_list.h"
#include "job_manager.h"
#include "job_picker.h"
#include "main_window.h"
#include "options_dialog.h"
#include "platform/dialogs.h"
#include "platform/quiet_seams.h"
#include "platform/event_pump.h"
#include "progress_window.h"
#include "window_registry.h"

namespace qr::gui {

namespace {

namespace fs = std::filesystem;

class HookPump : public EventPump {
 public:
  std::function<void()> hook;
  void Pump() override {
    if (hook) hook();
  }
};

void Settle() {
  for (int i = 0; i < 3; ++i) {
    QCoreApplication::sendPostedEvents();
    QCoreApplication::processEvents();
  }
}

// A few folders of files, large enough that the run pumps many times while it copies.
void MakeSampleTree(const fs::path& root) {
  const char* folders[] = {"Documents/Letters", "Documents/Reports 2024", "Photos/Holiday"};
  int n = 0;
  for (const char* folder : folders) {
    fs::create_directories(root / folder);
    for (int i = 0; i < 8; ++i, ++n) {
      std::ofstream f(root / folder / ("item " + std::to_string(n) + ".dat"), std::ios::binary);
      std::string bytes(256 * 1024, static_cast<char>('a' + n % 26));
      f << bytes;
    }
  }
}

}  // namespace

int TakeScreenshots(const std::string& dir, std::ostream& out, std::ostream& err) {
  std::error_code ec;
  fs::create_directories(dir, ec);
  if (!fs::is_directory(dir)) {
    err << "The folder " << dir << " does not exist and could not be created.\n";
    return 1;
  }
  QTemporaryDir scratch;
  if (!scratch.isValid()) {
    err << "No temporary folder could be made for the sample collection.\n";
    return 1;
  }
  const fs::path root = scratch.path().toStdString();
  fs::create_directories(root / "program" / "_filetypes");
  // The file type picker shows the definition file shipped beside this program.
  const fs::path shipped =
      fs::path(QCoreApplication::applicationDirPath().toStdString()) / "_filetypes" / "filetypes.txt";
  std::error_code copyError;
  fs::copy_file(shipped, root / "program" / "_filetypes" / "filetypes.txt", copyError);
  if (copyError) {
    err << "The definition file " << shipped.string() << " could not be read.\n";
    return 1;
  }
  MakeSampleTree(root / "sample");

  AffirmativeDialogs dialogs;  // nobody is there to answer
  HookPump pump;
  RunContext ctx(dialogs, pump);
  // The scratch folder stands in for the program's folder, so every settings file that start-up
  // reads or creates is a scratch one; no device environment redirects it.
  auto loaded = std::make_unique<OptionsDialog>(ctx, nullptr);
  StartupInputs inputs;
  inputs.programFolder = (root / "program").string();
  inputs.loadOptions = [&loaded] { loaded->Load(); };
  if (Startup(ctx, inputs).endProgram) {
    err << "Start-up failed.\n";
    return 1;
  }

  WindowRegistry windows;
  MainWindow window(ctx, windows, std::move(loaded));
  for (const char* folder : {"Documents", "Photos"}) {
    std::string path = (root / "sample" / folder).string();
    AddSource(ctx, path);
  }
  ctx.settings.TargetPath = (root / "collected").string();
  ctx.settings.LogPath = (root / "collected-logs").string();

  int failures = 0;
  auto save = [&](QWidget* w, const std::string& name) {
    const std::string path = (fs::path(dir) / name).string();
    if (w->grab().save(QString::fromStdString(path), "PNG")) {
      out << path << "\n";
    } else {
      err << "Could not write " << path << "\n";
      ++failures;
    }
  };

  window.Refresh();
  window.show();
  Settle();
  save(&window, "main.png");

  // Two prepared jobs in the scratch program's job folder, the first one selected.
  fs::create_directories(root / "program" / "_lsw");
  for (auto [file, name, instructions] :
       {std::tuple{"mail.lsw", "Collect mail stores", "Close the mail program first."},
        std::tuple{"docs.lsw", "Collect documents", "Leave the drive plugged in until the end."}}) {
    PreparedJob job;
    job.OrderName = name;
    job.Instructions = instructions;
    SaveJobFile(job, ctx.settings, (root / "program" / "_lsw" / file).string());
  }
  {
    JobPicker picker(ctx, window, windows);
    picker.Open();
    picker.findChild<QListWidget*>("lstJobs")->setCurrentRow(0);
    Settle();
    save(&picker, "job_picker.png");
    picker.hide();
    ctx.view.jobPickerVisible = false;
  }

  OptionsDialog* options = window.optionsDialog();
  window.ShowOptions();
  for (int page = 0; page < options->PageCount(); ++page) {
    options->ShowPage(page);
    Settle();
    save(options, "options_" + std::to_string(page) + ".png");
  }
  options->hide();

  FileFinder* finder = window.fileFinder();
  finder->Open((root / "sample").string());
  finder->ShowFolder((root / "sample" / "Documents" / "Letters").string());
  if (auto* files = finder->findChild<QListWidget*>("lstFiles"); files && files->count() > 2) {
    files->item(1)->setSelected(true);
    files->item(2)->setSelected(true);
  }
  Settle();
  save(finder, "file_finder.png");
  finder->hide();

  QLineEdit txtExt(QString("doc,[Images]"));
  FileTypePicker picker(ctx, &txtExt);
  picker.Open();
  Settle();
  save(&picker, "file_types.png");
  picker.hide();

  // The progress window is taken from the pump half way through the copying.
  bool progressTaken = false;
  pump.hook = [&] {
    windows.RefreshAll();
    QCoreApplication::processEvents();
    const RunCounters& c = ctx.counters;
    if (progressTaken || c.TotalFiles <= 0 || c.FilesProcessed * 2 < c.TotalFiles) return;
    Settle();
    save(window.progressWindow(), "progress.png");
    progressTaken = true;
  };
  window.RunClicked();
  pump.hook = nullptr;
  if (!progressTaken) {
    err << "The sample run ended before the progress window could be taken.\n";
    ++failures;
  }
  // The job manager with a prepared job loaded and the help of its target path shown.
  {
    PreparedJob sample;
    sample.OrderName = "Finance share 2024";
    sample.Instructions = "Plug the drive in, run the job and leave the computer on until the "
                          "report shows.";
    sample.ErrorNotes = "Call the help desk on 4100.";
    sample.Sources = {"[UserFolder]", "/srv/finance/2024", "[File List] [RVDrive]/lists/extra.txt"};
    sample.Ext = "doc,docx,xls,xlsx,pdf";
    sample.BeginMonth = "1";
    sample.BeginDay = "1";
    sample.BeginYear = "2024";
    sample.LSWSearchModified = true;
    fs::create_directories(root / "program" / "_lsw");
    const std::string job = (root / "program" / "_lsw" / "finance.lsw").string();
    SaveJobFile(sample, ctx.settings, job);
    JobManager* manager = window.jobManager();
    manager->OpenJob(job);
    if (auto* target = manager->findChild<QWidget*>("txtTarget")) {
      QEvent enter(QEvent::Enter);
      QCoreApplication::sendEvent(target, &enter);
    }
    Settle();
    save(manager, "job_manager.png");
    manager->hide();
  }
  window.hide();
  return failures == 0 ? 0 : 1;
}

}  // namespace qr::gui
