#include "jobdb/db_connection.h"

#include <sqlite3.h>

#include <charconv>
#include <cmath>
#include <cstdio>
#include <limits>
#include <memory>

#include "platform/errors.h"
#include "platform/text.h"

namespace qr {

namespace {

constexpr int kOverflow = 6;
constexpr int kSubscriptOutOfRange = 9;
constexpr int kTypeMismatch = 13;

// Waiting this long for a lock held by another process (a reader of the log folder, say) beats
// failing a statement at once.
constexpr int kBusyTimeoutMs = 5000;

std::string_view TrimBlanks(std::string_view s) {
  while (!s.empty() && s.front() == ' ') s.remove_prefix(1);
  while (!s.empty() && s.back() == ' ') s.remove_suffix(1);
  return s;
}

// A decimal number, with an optional sign, fraction and exponent ("1e+15" is what a large size
// column holds). Hexadecimal, infinities and NaN are not numbers here.
bool ParseNumber(std::string_view text, double& out) {
  std::string_view s = TrimBlanks(text);
  bool negative = false;
  if (!s.empty() && (s.front() == '+' || s.front() == '-')) {
    negative = s.front() == '-';
    s.remove_prefix(1);
  }
  size_t i = 0;
  size_t digits = 0;
  while (i < s.size() && s[i] >= '0' && s[i] <= '9') ++i, ++digits;
  if (i < s.size() && s[i] == '.') {
    ++i;
    while (i < s.size() && s[i] >= '0' && s[i] <= '9') ++i, ++digits;
  }
  if (digits == 0) return false;
  if (i < s.size() && (s[i] == 'e' || s[i] == 'E')) {
    ++i;
    if (i < s.size() && (s[i] == '+' || s[i] == '-')) ++i;
    size_t expDigits = 0;
    while (i < s.size() && s[i] >= '0' && s[i] <= '9') ++i, ++expDigits;
    if (expDigits == 0) return false;
  }
  if (i != s.size()) return false;
  double v = 0;
  auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), v);
  if (ec != std::errc() || end != s.data() + s.size()) return false;
  out = negative ? -v : v;
  return true;
}

// Whole numbers in text keep every digit: a key beyond 2^53 must not pass through a double.
bool ParseInteger(std::string_view text, int64_t& out) {
  std::string_view s = TrimBlanks(text);
  if (!s.empty() && s.front() == '+') s.remove_prefix(1);
  auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), out);
  return ec == std::errc() && end == s.data() + s.size() && !s.empty();
}

std::string DoubleText(double v) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "%.15g", v);
  return buf;
}

// Rounds half to even, as a whole-number conversion of the system does.
int64_t RoundToInt64(double d) {
  double r = std::nearbyint(d);
  if (!(r >= -9223372036854775808.0 && r < 9223372036854775808.0)) {
    throw RunError(kOverflow, "Overflow");
  }
  return static_cast<int64_t>(r);
}

bool EqualsFolded(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    char x = a[i], y = b[i];
    if (x >= 'A' && x <= 'Z') x = static_cast<char>(x - 'A' + 'a');
    if (y >= 'A' && y <= 'Z') y = static_cast<char>(y - 'A' + 'a');
    if (x != y) return false;
  }
  return true;
}

struct StatementCloser {
  void operator()(sqlite3_stmt* s) const { sqlite3_finalize(s); }
};

DbValue ColumnValue(sqlite3_stmt* stmt, int column) {
  switch (sqlite3_column_type(stmt, column)) {
    case SQLITE_INTEGER:
      return DbValue(static_cast<int64_t>(sqlite3_column_int64(stmt, column)));
    case SQLITE_FLOAT:
      return DbValue(sqlite3_column_double(stmt, column));
    case SQLITE_NULL:
      return DbValue();
    default: {
      // TEXT and BLOB alike: paths are bytes and come back as the very bytes stored.
      const void* data = sqlite3_column_blob(stmt, column);
      int size = sqlite3_column_bytes(stmt, column);
      if (data == nullptr) return DbValue(std::string());
      return DbValue(std::string(static_cast<const char*>(data), static_cast<size_t>(size)));
    }
  }
}

}  // namespace

// DbValue

bool DbValue::IsNumeric() const {
  if (const auto* s = std::get_if<std::string>(&v_)) {
    double ignored = 0;
    return ParseNumber(*s, ignored);
  }
  return !IsNull();
}

std::string DbValue::Text() const {
  if (const auto* i = std::get_if<int64_t>(&v_)) return IntText(*i);
  if (const auto* d = std::get_if<double>(&v_)) return DoubleText(*d);
  if (const auto* s = std::get_if<std::string>(&v_)) return *s;
  return std::string();
}

double DbValue::Number() const {
  if (const auto* i = std::get_if<int64_t>(&v_)) return static_cast<double>(*i);
  if (const auto* d = std::get_if<double>(&v_)) return *d;
  if (const auto* s = std::get_if<std::string>(&v_)) {
    double v = 0;
    if (!ParseNumber(*s, v)) throw RunError(kTypeMismatch, "Type mismatch");
    return v;
  }
  return 0;
}

int32_t DbValue::Int32() const {
  int64_t v = Int64();
  if (v < std::numeric_limits<int32_t>::min() || v > std::numeric_limits<int32_t>::max()) {
    throw RunError(kOverflow, "Overflow");
  }
  return static_cast<int32_t>(v);
}

int64_t DbValue::Int64() const {
  if (const auto* i = std::get_if<int64_t>(&v_)) return *i;
  if (const auto* s = std::get_if<std::string>(&v_)) {
    int64_t whole = 0;
    if (ParseInteger(*s, whole)) return whole;
  }
  return RoundToInt64(Number());
}

// ResultSet

ResultSet::ResultSet(std::vector<std::string> columns, std::vector<std::vector<DbValue>> rows)
    : columns_(std::move(columns)), rows_(std::move(rows)) {}

int ResultSet::FieldCount() const { return Eof() ? 0 : static_cast<int>(rows_[row_].size()); }

const DbValue& ResultSet::Field(std::string_view name) const {
  if (!Eof()) {
    for (size_t c = 0; c < columns_.size(); ++c) {
      if (EqualsFolded(columns_[c], name)) return rows_[row_][c];
    }
  }
  throw RunError(kSubscriptOutOfRange, "Subscript out of range");
}

const DbValue& ResultSet::Value(int row, int column) const {
  if (row < 0 || column < 0 || static_cast<size_t>(row) >= rows_.size() ||
      static_cast<size_t>(column) >= rows_[static_cast<size_t>(row)].size()) {
    throw RunError(kSubscriptOutOfRange, "Subscript out of range");
  }
  return rows_[static_cast<size_t>(row)][static_cast<size_t>(column)];
}

// DbConnection

DbConnection::~DbConnection() { Close(); }

void DbConnection::Close() {
  for (auto& [text, stmt] : kept_) sqlite3_finalize(stmt);
  kept_.clear();
  if (db_ != nullptr) sqlite3_close_v2(db_);
  db_ = nullptr;
}

bool DbConnection::Create(const std::string& path, const std::string&) {
  return OpenWith(path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
}

bool DbConnection::Open(const std::string& path, const std::string&) {
  return OpenWith(path, SQLITE_OPEN_READWRITE);
}

bool DbConnection::OpenWith(const std::string& path, int flags) {
  Close();
  sqlite3* db = nullptr;
  // Never through a link at the database's own name.
  int rc = sqlite3_open_v2(path.c_str(), &db, flags | SQLITE_OPEN_NOFOLLOW, nullptr);
  if (rc == SQLITE_OK) {
    sqlite3_busy_timeout(db, kBusyTimeoutMs);
    // SQLite reads a file lazily: only a first statement shows whether it really is a database.
    // An empty file passes, being an empty database. A file that another process keeps locked
    // counts as a database: a caller may empty a file that failed to open, and that would
    // destroy a job in use.
    rc = sqlite3_exec(db, "PRAGMA schema_version", nullptr, nullptr, nullptr);
    if (rc == SQLITE_BUSY || rc == SQLITE_LOCKED) rc = SQLITE_OK;
  }
  if (rc != SQLITE_OK) {
    openErrorCode_ = db != nullptr ? sqlite3_errcode(db) : rc;
    openErrorMessage_ = db != nullptr ? sqlite3_errmsg(db) : sqlite3_errstr(rc);
    lastSystemError_ = db != nullptr ? sqlite3_system_errno(db) : 0;
    sqlite3_close_v2(db);
    return false;
  }
  db_ = db;
  openErrorCode_ = 0;
  openErrorMessage_.clear();
  // Other processes may read the job database at any moment, so no exclusive locking; the
  // write-ahead log keeps them readable during a transaction. Both are tuning: a file system
  // that refuses them still works in the default journal mode.
  sqlite3_exec(db_, "PRAGMA journal_mode=WAL", nullptr, nullptr, nullptr);
  sqlite3_exec(db_, "PRAGMA synchronous=NORMAL", nullptr, nullptr, nullptr);
  return true;
}

RunError DbConnection::Failure() {
  if (db_ == nullptr) {
    // A statement on a connection whose open failed reports why it failed.
    if (openErrorCode_ != 0) return RunError(openErrorCode_, openErrorMessage_);
    return RunError(SQLITE_MISUSE, sqlite3_errstr(SQLITE_MISUSE));
  }
  lastSystemError_ = sqlite3_system_errno(db_);
  return RunError(sqlite3_errcode(db_), sqlite3_errmsg(db_));
}

void DbConnection::Execute(const std::string& sql) {
  if (db_ == nullptr) throw Failure();
  char* message = nullptr;
  int rc = sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, &message);
  if (rc != SQLITE_OK) {
    std::string text = message != nullptr ? message : sqlite3_errstr(rc);
    sqlite3_free(message);
    lastSystemError_ = sqlite3_system_errno(db_);
    throw RunError(rc, text);
  }
}

void DbConnection::ExecuteWith(const char* sql, std::initializer_list<std::string_view> texts) {
  if (db_ == nullptr) throw Failure();
  sqlite3_stmt*& stmt = kept_[sql];
  if (stmt == nullptr && sqlite3_prepare_v2(db_, sql, -1, &stmt, nullptr) != SQLITE_OK) {
    kept_.erase(sql);
    throw Failure();
  }
  int i = 0;
  for (std::string_view text : texts) {
    sqlite3_bind_text(stmt, ++i, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
  }
  const int rc = sqlite3_step(stmt);
  if (rc == SQLITE_DONE || rc == SQLITE_ROW) {
    sqlite3_reset(stmt);
    return;
  }
  // The words as the plain execute gives them: the connection's message for this failure.
  RunError failure(rc, sqlite3_errmsg(db_));
  lastSystemError_ = sqlite3_system_errno(db_);
  sqlite3_reset(stmt);
  throw failure;
}

ResultSet DbConnection::Query(const std::string& sql) {
  if (db_ == nullptr) throw Failure();
  sqlite3_stmt* raw = nullptr;
  if (sqlite3_prepare_v2(db_, sql.c_str(), static_cast<int>(sql.size()), &raw, nullptr) !=
      SQLITE_OK) {
    throw Failure();
  }
  if (raw == nullptr) return ResultSet();  // blank text or a comment: no statement, no rows
  std::unique_ptr<sqlite3_stmt, StatementCloser> stmt(raw);

  int columnCount = sqlite3_column_count(raw);
  std::vector<std::string> columns;
  columns.reserve(static_cast<size_t>(columnCount));
  for (int c = 0; c < columnCount; ++c) {
    const char* name = sqlite3_column_name(raw, c);
    columns.emplace_back(name != nullptr ? name : "");
  }
  std::vector<std::vector<DbValue>> rows;
  for (;;) {
    int rc = sqlite3_step(raw);
    if (rc == SQLITE_DONE) break;
    if (rc != SQLITE_ROW) throw Failure();
    std::vector<DbValue> row;
    row.reserve(static_cast<size_t>(columnCount));
    for (int c = 0; c < columnCount; ++c) row.push_back(ColumnValue(raw, c));
    rows.push_back(std::move(row));
  }
  return ResultSet(std::move(columns), std::move(rows));
}

std::string SqlQuote(std::string_view text) {
  std::string out;
  out.reserve(text.size() + 2);
  out += '\'';
  for (char ch : text) {
    if (ch == '\'') out += '\'';
    out += ch;
  }
  out += '\'';
  return out;
}

}  // namespace qr
