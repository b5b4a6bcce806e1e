#include "Store/Database.h"

#include "Platform/Text.h"

#include <memory>
#include <sqlite3.h>

namespace keepery {
namespace {

// Finalizes its statement however the operation ends.
struct StatementDeleter {
    void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};
using Statement = std::unique_ptr<sqlite3_stmt, StatementDeleter>;

Statement prepare(sqlite3* handle, const std::string& sql, const std::vector<Database::Value>& values) {
    sqlite3_stmt* raw = nullptr;
    if (sqlite3_prepare_v2(handle, sql.c_str(), -1, &raw, nullptr) != SQLITE_OK) {
        sqlite3_finalize(raw);
        throw Database::Failure(sqlite3_errmsg(handle), sql);
    }
    Statement statement(raw);
    int position = 1;
    for (const Database::Value& value : values) {
        if (auto integer = value.asInt()) {
            sqlite3_bind_int64(raw, position, *integer);
        } else if (const std::string* text = value.textPointer()) {
            // Handed over NUL-terminated: a text with a NUL inside is bound up to that character.
            sqlite3_bind_text(raw, position, text->c_str(), -1, SQLITE_TRANSIENT);
        } else if (const Database::Blob* blob = value.blobPointer()) {
            // A non-null pointer even for zero bytes, so that an empty buffer is a zero-length blob.
            static const std::uint8_t empty = 0;
            sqlite3_bind_blob(raw, position, blob->empty() ? &empty : blob->data(),
                              static_cast<int>(blob->size()), SQLITE_TRANSIENT);
        } else if (auto real = value.asDouble()) {
            sqlite3_bind_double(raw, position, *real);
        } else {
            sqlite3_bind_null(raw, position);
        }
        ++position;
    }
    return statement;
}

Database::Value column(sqlite3_stmt* statement, int index) {
    switch (sqlite3_column_type(statement, index)) {
    case SQLITE_INTEGER:
        return Database::Value(static_cast<std::int64_t>(sqlite3_column_int64(statement, index)));
    case SQLITE_FLOAT:
        return Database::Value(sqlite3_column_double(statement, index));
    case SQLITE_TEXT: {
        const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement, index));
        return Database::Value(std::string(text != nullptr ? text : ""));
    }
    case SQLITE_BLOB: {
        const int bytes = sqlite3_column_bytes(statement, index);
        const auto* data = static_cast<const std::uint8_t*>(sqlite3_column_blob(statement, index));
        if (bytes >= 1 && data != nullptr) {
            return Database::Value(Database::Blob(data, data + bytes));
        }
        return Database::Value(Database::Blob{});
    }
    default:
        return Database::Value::null();
    }
}

} // namespace

std::optional<std::int64_t> Database::Value::asInt() const {
    if (const auto* v = std::get_if<std::int64_t>(&storage_)) {
        return *v;
    }
    return std::nullopt;
}

std::optional<double> Database::Value::asDouble() const {
    if (const auto* v = std::get_if<double>(&storage_)) {
        return *v;
    }
    if (const auto* v = std::get_if<std::int64_t>(&storage_)) {
        return static_cast<double>(*v);
    }
    return std::nullopt;
}

std::optional<std::string> Database::Value::asText() const {
    if (const auto* v = std::get_if<std::string>(&storage_)) {
        return *v;
    }
    return std::nullopt;
}

std::optional<Database::Blob> Database::Value::asBlob() const {
    if (const auto* v = std::get_if<Blob>(&storage_)) {
        return *v;
    }
    return std::nullopt;
}

Database::Failure::Failure(std::string message, std::string sql)
    : message_(std::move(message)), sql_(std::move(sql)),
      description_("SQLite: " + message_ + " \u2014 " + Text::prefix(sql_, 120)) {}

Database::Database(std::string path) : Database(std::move(path), Access::readWrite) {}

Database::Database(std::string path, Access access) : path_(std::move(path)) {
    sqlite3* handle = nullptr;
    const int flags = access == Access::readOnly
                          ? SQLITE_OPEN_READONLY | SQLITE_OPEN_FULLMUTEX
                          : SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX;
    if (sqlite3_open_v2(path_.c_str(), &handle, flags, nullptr) != SQLITE_OK) {
        std::string message = handle != nullptr ? sqlite3_errmsg(handle) : "cannot open";
        sqlite3_close(handle);
        throw Failure(std::move(message), "open " + path_);
    }
    handle_ = handle;
    sqlite3_busy_timeout(handle_, static_cast<int>(busyTimeout.count()));
    if (access == Access::readOnly) {
        return;
    }
    try {
        execute("PRAGMA journal_mode = WAL");
        execute("PRAGMA foreign_keys = ON");
        execute("PRAGMA synchronous = NORMAL");
    } catch (...) {
        sqlite3_close(handle_);
        handle_ = nullptr;
        throw;
    }
}

Database::~Database() {
    if (handle_ != nullptr) {
        sqlite3_close(handle_);
    }
}

Database::Database(Database&& other) noexcept
    : handle_(std::exchange(other.handle_, nullptr)), path_(std::move(other.path_)) {}

Database& Database::operator=(Database&& other) noexcept {
    if (this != &other) {
        if (handle_ != nullptr) {
            sqlite3_close(handle_);
        }
        handle_ = std::exchange(other.handle_, nullptr);
        path_ = std::move(other.path_);
    }
    return *this;
}

void Database::execute(const std::string& sql) {
    char* error = nullptr;
    if (sqlite3_exec(handle_, sql.c_str(), nullptr, nullptr, &error) != SQLITE_OK) {
        std::string message = error != nullptr ? error : "error";
        sqlite3_free(error);
        throw Failure(std::move(message), sql);
    }
}

std::int64_t Database::run(const std::string& sql, const std::vector<Value>& values) {
    Statement statement = prepare(handle_, sql, values);
    const int result = sqlite3_step(statement.get());
    if (result != SQLITE_ROW && result != SQLITE_DONE) {
        std::string message = sqlite3_errmsg(handle_);
        statement.reset();
        throw Failure(std::move(message), sql);
    }
    const std::int64_t changes = sqlite3_changes(handle_);
    return changes;
}

std::vector<Database::Row> Database::query(const std::string& sql, const std::vector<Value>& values) {
    Statement statement = prepare(handle_, sql, values);
    std::vector<Row> rows;
    int result;
    while ((result = sqlite3_step(statement.get())) == SQLITE_ROW) {
        const int count = sqlite3_column_count(statement.get());
        Row row;
        row.reserve(static_cast<std::size_t>(count));
        for (int i = 0; i < count; ++i) {
            row.insert_or_assign(sqlite3_column_name(statement.get(), i), column(statement.get(), i));
        }
        rows.push_back(std::move(row));
    }
    if (result != SQLITE_DONE) {
        std::string message = sqlite3_errmsg(handle_);
        statement.reset();
        throw Failure(std::move(message), sql);
    }
    return rows;
}

int Database::Cursor::columnCount() const {
    return sqlite3_column_count(statement_);
}

std::string_view Database::Cursor::columnName(int index) const {
    const char* name = sqlite3_column_name(statement_, index);
    return name != nullptr ? std::string_view(name) : std::string_view();
}

Database::Value Database::Cursor::value(int index) const {
    return column(statement_, index);
}

std::optional<std::string_view> Database::Cursor::text(int index) const {
    if (sqlite3_column_type(statement_, index) != SQLITE_TEXT) {
        return std::nullopt;
    }
    const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement_, index));
    return text != nullptr ? std::string_view(text) : std::string_view();
}

std::optional<std::span<const std::uint8_t>> Database::Cursor::blob(int index) const {
    if (sqlite3_column_type(statement_, index) != SQLITE_BLOB) {
        return std::nullopt;
    }
    const int bytes = sqlite3_column_bytes(statement_, index);
    const auto* data = static_cast<const std::uint8_t*>(sqlite3_column_blob(statement_, index));
    if (bytes < 1 || data == nullptr) {
        return std::span<const std::uint8_t>();
    }
    return std::span<const std::uint8_t>(data, static_cast<std::size_t>(bytes));
}

void Database::forEachRow(const std::string& sql, const std::vector<Value>& values,
                          const std::function<void(const Cursor&)>& visit) {
    Statement statement = prepare(handle_, sql, values);
    const Cursor cursor(statement.get());
    int result;
    while ((result = sqlite3_step(statement.get())) == SQLITE_ROW) {
        visit(cursor);
    }
    if (result != SQLITE_DONE) {
        std::string message = sqlite3_errmsg(handle_);
        statement.reset();
        throw Failure(std::move(message), sql);
    }
}

void Database::interrupt() {
    if (handle_ != nullptr) {
        sqlite3_interrupt(handle_);
    }
}

std::int64_t Database::lastInsertRowID() const {
    return sqlite3_last_insert_rowid(handle_);
}

std::int64_t Database::totalChanges() const {
    return sqlite3_total_changes64(handle_);
}

std::int64_t Database::dataVersion() {
    std::int64_t version = 0;
    forEachRow("PRAGMA data_version", {},
               [&](const Cursor& cursor) { version = cursor.value(0).asInt().value_or(0); });
    return version;
}

void Database::commit() {
    try {
        execute("COMMIT");
    } catch (const Failure&) {
        rollBackQuietly();
        throw;
    }
}

void Database::rollBackQuietly() noexcept {
    try {
        execute("ROLLBACK");
    } catch (...) {
        // SQLite may already have rolled back on its own; the caller's error is the one that matters.
    }
}

std::int64_t Database::userVersion() {
    try {
        auto rows = query("PRAGMA user_version");
        if (!rows.empty()) {
            if (auto it = rows.front().find("user_version"); it != rows.front().end()) {
                return it->second.asInt().value_or(0);
            }
        }
    } catch (const Failure&) {
        // Unreadable counts as a new database.
    }
    return 0;
}

void Database::setUserVersion(std::int64_t version) {
    execute("PRAGMA user_version = " + std::to_string(version));
}

} // namespace keepery
