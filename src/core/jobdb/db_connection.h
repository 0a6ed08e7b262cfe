#pragma once
// A small connection and result-set layer over SQLite: exactly what the job database needs.
// SQL is plain text; values are quoted into it with SqlQuote.
#include <cstdint>
#include <memory>
#include <string>
#include <initializer_list>
#include <string_view>
#include <unordered_map>
#include <variant>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

namespace qr {

class RunError;

// A value of a result: empty (NULL), a whole number, a real number or a text.
class DbValue {
 public:
  DbValue() = default;
  explicit DbValue(int64_t v) : v_(v) {}
  explicit DbValue(double v) : v_(v) {}
  explicit DbValue(std::string v) : v_(std::move(v)) {}

  bool IsNull() const { return std::holds_alternative<std::monostate>(v_); }
  // True for a number, or a text that reads as a number.
  bool IsNumeric() const;
  // The value as text: numbers as plain decimal, NULL as empty.
  std::string Text() const;
  // The value as a number; throws RunError (13, "Type mismatch") for a text that is no number
  // and gives 0 for NULL.
  double Number() const;
  // As a signed 32-bit integer; throws RunError (6, "Overflow") outside that range.
  int32_t Int32() const;
  // As a 64-bit integer (keys and sizes).
  int64_t Int64() const;

 private:
  std::variant<std::monostate, int64_t, double, std::string> v_;
};

class ResultSet {
 public:
  ResultSet() = default;
  ResultSet(std::vector<std::string> columns, std::vector<std::vector<DbValue>> rows);

  int RowCount() const { return static_cast<int>(rows_.size()); }
  // Number of fields of the current row (0 when there is none).
  int FieldCount() const;
  // Number of columns of the result, known even when it has no rows.
  int ColumnCount() const { return static_cast<int>(columns_.size()); }
  void MoveFirst() { row_ = 0; }
  void MoveNext() { ++row_; }
  bool Eof() const { return row_ >= rows_.size(); }
  // The field of the current row by column name (case folded); throws RunError when absent.
  const DbValue& Field(std::string_view name) const;
  // By row and column number, counted from 0.
  const DbValue& Value(int row, int column) const;

 private:
  std::vector<std::string> columns_;
  std::vector<std::vector<DbValue>> rows_;
  size_t row_ = 0;
};

class DbConnection {
 public:
  DbConnection() = default;
  ~DbConnection();
  DbConnection(const DbConnection&) = delete;
  DbConnection& operator=(const DbConnection&) = delete;

  // Makes a new database file (an existing file is opened as it is). The password is always
  // empty. False on failure.
  bool Create(const std::string& path, const std::string& password = "");
  // Opens an existing database file; false when it can't be opened as a database.
  bool Open(const std::string& path, const std::string& password = "");
  // Throws RunError(sqlite result code, message) on failure.
  void Execute(const std::string& sql);
  // One statement whose `?` stand for the texts, in order, each as if quoted into the SQL. The
  // statement is compiled once per connection and kept: for the statements run once a row.
  // Throws RunError as Execute does.
  void ExecuteWith(const char* sql, std::initializer_list<std::string_view> texts);
  ResultSet Query(const std::string& sql);
  bool IsOpen() const { return db_ != nullptr; }
  // The operating system's error number behind the last failure (errno), 0 when there was none.
  int LastSystemError() const { return lastSystemError_; }

 private:
  bool OpenWith(const std::string& path, int flags);
  // The connection's last failure as a RunError, its system error number kept.
  RunError Failure();
  void Close();
  sqlite3* db_ = nullptr;
  // Compiled statements of ExecuteWith, by their text.
  std::unordered_map<std::string, sqlite3_stmt*> kept_;
  // Why the last open failed; what a statement on a connection that never opened reports.
  int openErrorCode_ = 0;
  std::string openErrorMessage_;
  int lastSystemError_ = 0;
};

// The value between single quotes, each single quote inside it doubled.
std::string SqlQuote(std::string_view text);

}  // namespace qr
