#pragma once

#include <chrono>
#include <concepts>
#include <cstdint>
#include <exception>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <variant>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

namespace keepery {

// One connection to one SQLite database file. It prepares, binds by position, runs and finalizes each
// statement afresh (no statement cache). The connection is opened in serialized mode, but error texts and
// change counts describe the connection's latest call, so one serial context uses a Database at a time.
// Move-only; the connection closes with the object.
class Database {
public:
    using Blob = std::vector<std::uint8_t>;

    // One bound or fetched SQL value: integer, real, text, blob or null.
    class Value {
    public:
        Value() = default; // null
        template <std::integral T>
        requires(!std::same_as<T, bool>) Value(T v) : storage_(static_cast<std::int64_t>(v)) {}
        Value(double v) : storage_(v) {}
        Value(std::string v) : storage_(std::move(v)) {}
        Value(const char* v) : storage_(std::string(v)) {}
        Value(std::string_view v) : storage_(std::string(v)) {}
        Value(Blob v) : storage_(std::move(v)) {}
        // `text` when present, null when absent.
        Value(const std::optional<std::string>& v) {
            if (v) {
                storage_ = *v;
            }
        }
        static Value null() { return Value(); }

        bool operator==(const Value&) const = default;

        [[nodiscard]] bool isNull() const { return std::holds_alternative<std::monostate>(storage_); }
        // The integer, only for an integer value.
        [[nodiscard]] std::optional<std::int64_t> asInt() const;
        // The number for a real value, and an integer value converted to double.
        [[nodiscard]] std::optional<double> asDouble() const;
        [[nodiscard]] std::optional<std::string> asText() const;
        [[nodiscard]] std::optional<Blob> asBlob() const;
        // The text without copying; null when the value is not text.
        [[nodiscard]] const std::string* textPointer() const { return std::get_if<std::string>(&storage_); }
        [[nodiscard]] const Blob* blobPointer() const { return std::get_if<Blob>(&storage_); }

    private:
        std::variant<std::monostate, std::int64_t, double, std::string, Blob> storage_;
    };

    // A row maps column names to values; where two columns share a name, the later one wins.
    using Row = std::unordered_map<std::string, Value>;

    // The layer's one error: SQLite's message (or the layer's own word) and the whole failing statement.
    class Failure : public std::exception {
    public:
        Failure(std::string message, std::string sql);
        const std::string& message() const { return message_; }
        const std::string& sql() const { return sql_; }
        // "SQLite: " + message + " — " + the first 120 characters of the statement.
        const std::string& description() const { return description_; }
        const char* what() const noexcept override { return description_.c_str(); }

    private:
        std::string message_;
        std::string sql_;
        std::string description_;
    };

    // How long a statement waits for another connection's write lock before it fails as busy.
    static constexpr std::chrono::milliseconds busyTimeout{5000};

    // Opens (creating when missing) the file at `path` read-write in serialized mode, with `busyTimeout`,
    // WAL journaling, foreign keys on and synchronous NORMAL. Throws Failure.
    explicit Database(std::string path);

    enum class Access : bool { readWrite, readOnly };
    // With `readWrite`, as above. With `readOnly`, opens the existing file for reading only, with
    // `busyTimeout`, and sets nothing (the journal mode is the file's own). Throws Failure.
    Database(std::string path, Access access);
    ~Database();
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;
    Database(Database&& other) noexcept;
    Database& operator=(Database&& other) noexcept;

    [[nodiscard]] const std::string& path() const { return path_; }

    // Runs a script of one or more statements with no bound values; rows are dropped. Throws Failure.
    void execute(const std::string& sql);

    // Runs the first statement of `sql` with `values` bound by position, stepping once; returns the rows
    // changed. Extra values are ignored; missing ones bind NULL. Throws Failure.
    std::int64_t run(const std::string& sql, const std::vector<Value>& values = {});

    // Runs the first statement of `sql` and returns its rows in order. Throws Failure.
    [[nodiscard]] std::vector<Row> query(const std::string& sql, const std::vector<Value>& values = {});

    // The current row while forEachRow runs; valid only inside the visitor. Reads by column position.
    class Cursor {
    public:
        [[nodiscard]] int columnCount() const;
        // The column's name (the alias when the statement gives one).
        [[nodiscard]] std::string_view columnName(int column) const;
        // The column's value by its type in this row, read as `query` reads it.
        [[nodiscard]] Value value(int column) const;
        // The text up to its first NUL byte, without a copy; absent unless the column holds TEXT.
        [[nodiscard]] std::optional<std::string_view> text(int column) const;
        // The bytes without a copy (empty for a zero-length blob); absent unless the column holds a BLOB.
        [[nodiscard]] std::optional<std::span<const std::uint8_t>> blob(int column) const;

    private:
        friend class Database;
        explicit Cursor(sqlite3_stmt* statement) : statement_(statement) {}
        sqlite3_stmt* statement_;
    };

    // Runs the first statement of `sql` like `query`, but hands each row to `visit` as SQLite steps to it
    // instead of gathering rows. Throws Failure when compiling or a step fails (rows already visited stay
    // visited); an exception from `visit` passes on once the statement is finalized.
    void forEachRow(const std::string& sql, const std::vector<Value>& values,
                    const std::function<void(const Cursor&)>& visit);

    [[nodiscard]] std::int64_t lastInsertRowID() const;

    // Makes the statement running on this connection (on another thread) stop soon and fail; later
    // statements run as usual. Safe from any thread while the connection is open.
    void interrupt();

    // Rows inserted, updated or deleted through this connection since it opened (a rolled-back change
    // still counts).
    [[nodiscard]] std::int64_t totalChanges() const;

    // "PRAGMA data_version": a number that differs from the last one read whenever another connection has
    // committed in between. Throws Failure.
    [[nodiscard]] std::int64_t dataVersion();

    // Runs `body` between "BEGIN IMMEDIATE" and "COMMIT", rolling back when it throws (its own exception
    // passes on) or when the commit fails (the commit's Failure is thrown). Transactions do not nest: an
    // inner call fails at its BEGIN.
    template <typename Body>
    auto transaction(Body&& body) -> std::invoke_result_t<Body&> {
        execute("BEGIN IMMEDIATE");
        auto guarded = [&]() -> decltype(auto) {
            try {
                return body();
            } catch (...) {
                rollBackQuietly();
                throw;
            }
        };
        if constexpr (std::is_void_v<std::invoke_result_t<Body&>>) {
            guarded();
            commit();
        } else {
            std::invoke_result_t<Body&> result = guarded();
            commit();
            return result;
        }
    }

    // The schema version ("PRAGMA user_version"); 0 when it cannot be read. Never throws.
    [[nodiscard]] std::int64_t userVersion();
    // Throws Failure.
    void setUserVersion(std::int64_t version);

private:
    // "COMMIT"; when it fails, "ROLLBACK" (its own failure ignored) and the commit's Failure is thrown.
    void commit();
    void rollBackQuietly() noexcept;

    sqlite3* handle_ = nullptr;
    std::string path_;
};

} // namespace keepery
