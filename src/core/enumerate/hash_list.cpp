#include "enumerate/hash_list.h"

#include "jobdb/db_connection.h"
#include "jobdb/job_database.h"
#include "platform/errors.h"
#include "platform/plain_text.h"
#include "platform/text.h"
#include "run/job_connection.h"
#include "run/run_context.h"

namespace qr {

std::string RegisterFileHash(RunContext& ctx, const std::string& path, const std::string& hash) {
  std::string stage;
  auto report = [&](int number, const std::string& description) {
    ctx.WriteSilentLog("Duplicate determination error.\r\n" + IntText(number) + ": " + description +
                       "\r\nStage: " + stage);
  };
  try {
    std::string known;
    stage = "Setting Query";
    // Hash and path go between double quotes with no doubling: neither a hex digest nor one of
    // our absolute paths can be mistaken for a column name.
    std::string sql = "Select hash, path from tHashes where hash = \"" + hash + "\"";
    stage = "Querying Database";
    ResultSet result = Connection(ctx).Query(sql);
    stage = "Checking Result Count";
    if (result.RowCount() > 0) {
      stage = "Reading from value matrix";
      known = result.Value(0, 1).Text();
    } else {
      stage = "Setting Insertion Query";
      sql = "Insert into tHashes(hash, path) values(\"" + hash + "\", \"" + path + "\")";
      stage = "Executing Insertion Query";
      Connection(ctx).Execute(sql);
    }
    stage = "Destruct result set";
    result = ResultSet();
    stage = "Return";
    return known;
  } catch (const RunError& e) {
    report(e.number(), e.description());
  } catch (const std::exception& e) {
    report(kInternalErrorNumber, e.what());
  }
  return std::string();
}

void DumpHashList(RunContext& ctx, const std::string& path) {
  auto report = [&](int number, const std::string& description) {
    ctx.ShowMessage("Hash List Dump Error\r\n" + IntText(number) + ": " + description, Icon::None);
  };
  try {
    DbConnection db;
    if (!db.Open(ctx.paths.DatabasePath)) return;
    ResultSet rows = db.Query("Select * from tHashes order by hash asc");
    if (rows.RowCount() <= 0) return;
    std::string text;
    for (rows.MoveFirst(); !rows.Eof(); rows.MoveNext()) {
      text += UpperCase(rows.Field("hash").Text());
      text += kCrLf;
    }
    int err = 0;
    if (!WriteWholeFile(path, text, &err)) throw SystemError(err);
  } catch (const RunError& e) {
    report(e.number(), e.description());
  } catch (const std::exception& e) {
    report(kInternalErrorNumber, e.what());
  }
}

}  // namespace qr
