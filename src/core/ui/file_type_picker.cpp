#include "ui/file_type_picker.h"

#include "filetypes/header_match.h"
#include "platform/paths.h"
#include "platform/text.h"

namespace qr {

namespace {

const std::string* Selected(const std::vector<std::string>& items, int index) {
  if (index < 0 || static_cast<size_t>(index) >= items.size()) return nullptr;
  return &items[static_cast<size_t>(index)];
}

}  // namespace

std::string DefinitionFilePath(const std::string& programFolder) {
  return WithTrailingSep(programFolder) + "_filetypes" + std::string(kSepText) + "filetypes.txt";
}

void frmFileDefs_Load(RunContext& ctx, FileTypePickerForm& f) {
  f.lblInstructions =
      "Choose a category and click Add Category to collect every type in it, or choose a single "
      "type and click Add Type. Each choice is added to the job's extensions at once.";
  clsHeaderMatch types(ctx);
  types.LoadDefinitionFile(DefinitionFilePath(ctx.program.app.programFolder));
  f.listFileCats = types.Categories();
  f.listFileCatsIndex = -1;
  f.listFileDefs.clear();
  f.listFileDefsIndex = -1;
  if (!f.listFileCats.empty()) listFileCats_Click(ctx, f, 0);
}

void FillBox(RunContext& ctx, FileTypePickerForm& f, const std::string& category) {
  f.lblComponentTypes = "File Definitions in " + category;
  f.listFileDefs.clear();
  f.listFileDefsIndex = -1;
  clsHeaderMatch types(ctx);
  types.LoadDefinitionFile(DefinitionFilePath(ctx.program.app.programFolder));
  const int count = types.CountInCategory(category);
  for (int i = 0; i < count; ++i) f.listFileDefs.push_back(types.FileTypeInCatArray(category, i));
}

void listFileCats_Click(RunContext& ctx, FileTypePickerForm& f, int index) {
  const std::string* category = Selected(f.listFileCats, index);
  if (category == nullptr) return;
  f.listFileCatsIndex = index;
  FillBox(ctx, f, *category);
}

std::string AppendTerm(const std::string& field, const std::string& term) {
  if (Trim(field).empty()) return term;
  if (field.back() == ',') return field + term;
  return field + "," + term;
}

std::string CategoryTerm(const std::string& category) { return "[" + category + "]"; }
std::string TypeTerm(const std::string& type) { return "[~" + type + "]"; }

void cmdAddCat_Click(const FileTypePickerForm& f, std::string& txtExt) {
  if (const std::string* c = Selected(f.listFileCats, f.listFileCatsIndex)) {
    txtExt = AppendTerm(txtExt, CategoryTerm(*c));
  }
}

void cmdAddType_Click(const FileTypePickerForm& f, std::string& txtExt) {
  if (const std::string* t = Selected(f.listFileDefs, f.listFileDefsIndex)) {
    txtExt = AppendTerm(txtExt, TypeTerm(*t));
  }
}

void cmdCancel_Click(FileTypePickerForm& f) { f.visible = false; }

}  // namespace qr
