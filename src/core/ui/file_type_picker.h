#pragma once
// The logic of "File Type Definitions": the categories and types of the definition file, and the
// terms "[category]" and "[~type]" that its buttons add to the job manager's extension field.
#include <string>
#include <vector>

#include "run/run_context.h"

namespace qr {

struct FileTypePickerForm {
  std::vector<std::string> listFileCats;
  int listFileCatsIndex = -1;
  std::vector<std::string> listFileDefs;
  int listFileDefsIndex = -1;
  std::string lblComponentTypes;
  std::string lblInstructions;
  bool visible = false;
};

// The definition file in the program's folder: "_filetypes/filetypes.txt" beside the program.
std::string DefinitionFilePath(const std::string& programFolder);

// The picker's load: every category of the definition file, the first one selected and its
// types shown.
void frmFileDefs_Load(RunContext& ctx, FileTypePickerForm& f);
// Shows the types of `category`, loading the definition file afresh.
void FillBox(RunContext& ctx, FileTypePickerForm& f, const std::string& category);
void listFileCats_Click(RunContext& ctx, FileTypePickerForm& f, int index);

// The comma rules of the extension field: an empty (or blank) field takes the term alone, a
// field that ends in "," takes it as it is, any other gets "," and the term.
std::string AppendTerm(const std::string& field, const std::string& term);
// "[name]" and "[~name]".
std::string CategoryTerm(const std::string& category);
std::string TypeTerm(const std::string& type);

// Each adds the selected category or type to `txtExt`; with nothing selected nothing changes.
void cmdAddCat_Click(const FileTypePickerForm& f, std::string& txtExt);
void cmdAddType_Click(const FileTypePickerForm& f, std::string& txtExt);
// The picker has no OK: each add takes effect at once, and this only hides it.
void cmdCancel_Click(FileTypePickerForm& f);

}  // namespace qr
