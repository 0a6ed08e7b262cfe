// The file finder and the file type picker offscreen, through their real widgets: files picked
// in the finder reach the main window's source list; the picker's buttons reach the extension
// field it was given.
#include <gtest/gtest.h>

#include <QAction>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QTest>
#include <QTreeWidget>
#include <memory>
#include <string>
#include <vector>

#include "file_finder.h"
#include "file_type_picker.h"
#include "main_window.h"
#include "options_dialog.h"
#include "progress_window.h"
#include "support/run_fixture.h"
#include "window_registry.h"
#include "window_test.h"

namespace qr::gui {
namespace {

class FileWindowsTest : public ::testing::Test, protected test::RunFixture {
 protected:
  WindowRegistry windows;
};

TEST_F(FileWindowsTest, FilesPickedInTheFinderReachTheMainWindowsSourceList) {
  dir.WriteFile("case/b.txt", "b");
  dir.WriteFile("case/a.txt", "a");
  dir.WriteFile("case/c.txt", "c");
  dir.WriteFile("case/inner/d.txt", "d");
  MainWindow window(ctx, windows);
  window.findChild<QAction*>("tbAddFiles")->trigger();
  FileFinder* finder = window.fileFinder();
  ASSERT_TRUE(finder->isVisible());
  EXPECT_EQ(finder->windowTitle(), "Add File(s) as Sources");
  EXPECT_EQ(Child<QPushButton>(finder, "CancelButton")->text(), "Finished");

  auto* files = Child<QListWidget>(finder, "lstFiles");
  dialogs.picks = {dir / "case/inner"};
  Child<QPushButton>(finder, "cmdSourceBrowse")->click();
  EXPECT_EQ(files->count(), 1);
  auto* folder = Child<QLineEdit>(finder, "txtSourceFolder");
  folder->clear();
  QTest::keyClicks(folder, Q(dir / "case"));
  ASSERT_EQ(files->count(), 3);
  files->item(2)->setSelected(true);
  files->item(0)->setSelected(true);
  // The tree has followed the typed folder, opened one level at a time.
  const QTreeWidgetItem* current = Child<QTreeWidget>(finder, "dDirs")->currentItem();
  ASSERT_NE(current, nullptr);
  EXPECT_EQ(current->text(0), "case");

  Child<QPushButton>(finder, "OKButton")->click();
  EXPECT_EQ(ctx.settings.Sources, (std::vector<std::string>{dir / "case/a.txt", dir / "case/c.txt"}));
  EXPECT_EQ(window.findChild<QListWidget*>("lstSources")->count(), 2);
  EXPECT_TRUE(finder->isVisible());
  EXPECT_EQ(files->selectedItems().size(), 2);

  Child<QPushButton>(finder, "CancelButton")->click();
  EXPECT_FALSE(finder->isVisible());
}

TEST_F(FileWindowsTest, ThePickersButtonsWriteTermsIntoTheGivenField) {
  ctx.program.app.programFolder = dir.path() + "/";
  dir.WriteFile("_filetypes/filetypes.txt",
              "Images\tPNG Image\tpng\t^\\x89PNG\t0\n"
              "Documents\tPDF Document\tpdf\t^%PDF-\t0\n");
  QLineEdit txtExt("doc");
  std::vector<QString> edited;
  QObject::connect(&txtExt, &QLineEdit::textEdited, [&](const QString& s) { edited.push_back(s); });
  FileTypePicker picker(ctx, &txtExt);
  picker.show();
  EXPECT_EQ(picker.windowTitle(), "File Type Definitions");
  EXPECT_TRUE(Child<QLabel>(&picker, "lblInstructions")->text().startsWith("Choose a category"));
  auto* cats = Child<QListWidget>(&picker, "listFileCats");
  ASSERT_EQ(cats->count(), 2);
  cats->setCurrentRow(1);
  EXPECT_EQ(Child<QLabel>(&picker, "lblComponentTypes")->text(), "File Definitions in Documents");
  Child<QPushButton>(&picker, "cmdAddCat")->click();
  Child<QListWidget>(&picker, "listFileDefs")->setCurrentRow(0);
  Child<QPushButton>(&picker, "cmdAddType")->click();
  EXPECT_EQ(txtExt.text(), "doc,[Documents],[~PDF Document]");
  // The field's owner hears of each add as of a person's edit.
  ASSERT_EQ(edited.size(), 2u);
  EXPECT_EQ(edited.back(), txtExt.text());
  EXPECT_TRUE(picker.isVisible());
  Child<QPushButton>(&picker, "cmdCancel")->click();
  EXPECT_FALSE(picker.isVisible());
}

}  // namespace
}  // namespace qr::gui
