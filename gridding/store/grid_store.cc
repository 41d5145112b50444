#include "gridding/store/grid_store.h"

#include <mutex>
#include <utility>

#include "gridding/store/database.h"
#include "gridding/store/grid_folder.h"
#include "gridding/store/held_folder.h"
#include "gridding/store/lock_file.h"
#include "gridding/store/schema.h"
#include "gridding/store/snapshot.h"
#include "gridding/store/write_transaction.h"
#include "gridding/store/writers.h"

namespace quarro::store {

namespace fs = std::filesystem;

namespace {

// Readers hold on to the log; a checkpoint does not wait for long ones.
constexpr int kCheckpointPatience_ms = 250;
constexpr int kCreatingCache_kib = 1024;

class SqliteGridStore : public GridStore {
 public:
  SqliteGridStore(const fs::path& folder, const std::string& name, LockFile lock)
      : folder_(folder, name, std::move(lock)),
        name_(name),
        writer_(folder_),
        parameters_(ReadParameters(writer_.connection)),
        readers_(folder_) {}
  ~SqliteGridStore() override;

  const std::string& Name() const override { return name_; }
  const GridParameters& Parameters() const override { return parameters_; }

  std::unique_ptr<Snapshot> TakeSnapshot() override {
    return std::make_unique<SqliteSnapshot>(readers_);
  }
  std::uint64_t WriteMark() const override { return writer_.mark; }
  std::optional<LineRecord> FindLine(const Digest& digest) override {
    return SqliteSnapshot(readers_).FindLine(digest);
  }
  std::unique_ptr<LineWriter> BeginLine() override {
    return std::make_unique<SqliteLineWriter>(writer_);
  }
  std::unique_ptr<RefinementWriter> BeginRefinement() override {
    return std::make_unique<SqliteRefinementWriter>(writer_);
  }
  void Checkpoint() override;

 private:
  // Constant after construction, and destroyed last: the lock outlives the connections.
  const HeldFolder folder_;
  const std::string name_;
  Writer writer_;
  const GridParameters parameters_;
  ReaderPool readers_;
};

SqliteGridStore::~SqliteGridStore() {
  // The last connection to be closed removes the log by its path: that must not be another grid's.
  if (!folder_.IsInPlace()) writer_.connection.KeepLogAtClose();
}

void SqliteGridStore::Checkpoint() {
  folder_.Check();
  sqlite3* const handle = writer_.connection.Handle();
  if (writer_.taken.exchange(true)) {
    throw StoreError(folder_.Grid() + ": it cannot be brought to rest while it is being written");
  }
  sqlite3_busy_timeout(handle, kCheckpointPatience_ms);
  const int code =
      sqlite3_wal_checkpoint_v2(handle, "main", SQLITE_CHECKPOINT_TRUNCATE, nullptr, nullptr);
  sqlite3_busy_timeout(handle, Connection::kBusyTimeout_ms);
  writer_.taken = false;
  // Busy: a reader needs a part of the log still. All that could be moved was, and the log itself
  // is on the disc since each commit.
  if (code != SQLITE_OK && (code & 0xff) != SQLITE_BUSY) {
    writer_.connection.Fail(code, "moving its log to the database");
  }
}

// The lock of the folder that has the name now, should it be replaced in the meantime.
LockFile LockGrid(const fs::path& folder, const std::string& name) {
  for (;;) {
    LockFile lock(folder, name);
    if (lock.Guards(folder)) return lock;
  }
}

void MakeDatabase(const fs::path& folder, const std::string& grid,
                  const GridParameters& parameters) {
  {
    Connection connection(folder / kDatabaseFile, grid, Connection::Mode::kCreate,
                          kCreatingCache_kib);
    CreateTables(connection, parameters);
  }
  // Closing moves the log to the database and removes it.
  if (fs::exists(folder / (std::string(kDatabaseFile) + "-wal"))) {
    throw StoreError(grid + ": its database could not be finished in " + folder.string());
  }
  SyncToDisc(folder / kDatabaseFile);
}

}  // namespace

std::unique_ptr<GridStore> GridStore::Create(const fs::path& working_directory,
                                             const std::string& name,
                                             const GridParameters& parameters,
                                             std::string& set_aside_as) {
  set_aside_as.clear();
  CheckGridName(name);
  CheckWorkingDirectory(working_directory);
  const fs::path directory = fs::absolute(working_directory);
  const fs::path folder = directory / name;
  RemoveUnfinished(directory, name);
  NewFolder made(directory, name);
  LockFile lock(made.Path(), name);
  MakeDatabase(made.Path(), DescribeGrid(name, folder), parameters);
  CheckFormat(made.Path() / kDatabaseFile, DescribeGrid(name, folder));
  set_aside_as = made.PutInPlace();
  return std::make_unique<SqliteGridStore>(folder, name, std::move(lock));
}

std::unique_ptr<GridStore> GridStore::Open(const fs::path& working_directory,
                                           const std::string& name) {
  CheckGridName(name);
  CheckWorkingDirectory(working_directory);
  const fs::path directory = fs::absolute(working_directory);
  const fs::path folder = directory / name;
  std::error_code error;
  if (!fs::exists(folder / kDatabaseFile, error)) {
    if (error) throw StoreError(folder.string() + " cannot be opened: " + error.message());
    throw StoreError("there is no grid \"" + name + "\" in " + directory.string());
  }
  LockFile lock = LockGrid(folder, name);
  CheckFormat(folder / kDatabaseFile, DescribeGrid(name, folder));
  return std::make_unique<SqliteGridStore>(folder, name, std::move(lock));
}

}  // namespace quarro::store
