// SQLite 3: write-ahead log, prepared statements, a large cache and mapped reading. What is asked
// for has columns; a row takes as many bytes as the record, the rest of them in one blob.
#include <sqlite3.h>

#include <stdexcept>

#include "bench/peers/LetterBytes.h"
#include "bench/peers/Peer.h"
#include "kit/KitFile.h"

namespace {

constexpr char kSchema[] =
    "CREATE TABLE IF NOT EXISTS folder(id INTEGER PRIMARY KEY, name TEXT NOT NULL,"
    "  letters INTEGER NOT NULL, unread INTEGER NOT NULL);"
    "CREATE TABLE IF NOT EXISTS letter(id INTEGER PRIMARY KEY, folder INTEGER NOT NULL,"
    "  flag INTEGER NOT NULL, time INTEGER NOT NULL, subject TEXT NOT NULL, rest BLOB NOT NULL);"
    "CREATE TABLE IF NOT EXISTS attachment(id INTEGER PRIMARY KEY, letter INTEGER NOT NULL,"
    "  rest BLOB NOT NULL);"
    "CREATE TABLE IF NOT EXISTS recipient(id INTEGER PRIMARY KEY, letter INTEGER NOT NULL,"
    "  packet TEXT NOT NULL, rest BLOB NOT NULL);"
    "CREATE INDEX IF NOT EXISTS letter_folder ON letter(folder);"
    "CREATE INDEX IF NOT EXISTS attachment_letter ON attachment(letter);"
    "CREATE INDEX IF NOT EXISTS recipient_letter ON recipient(letter);"
    "CREATE UNIQUE INDEX IF NOT EXISTS recipient_packet ON recipient(packet);";

void Check(int code, sqlite3* database, const char* what) {
  if (code != SQLITE_OK && code != SQLITE_ROW && code != SQLITE_DONE)
    throw std::runtime_error(std::string("sqlite: ") + what + ": " + sqlite3_errmsg(database));
}

class Database {
 public:
  Database(const std::string& path, bool sync) {
    const int code =
        sqlite3_open_v2(path.c_str(), &m_database,
                        SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
    m_closer.reset(m_database);
    Check(code, m_database, "open");
    Do(sync ? "PRAGMA synchronous=FULL" : "PRAGMA synchronous=OFF");
    Do("PRAGMA journal_mode=WAL");
    Do("PRAGMA wal_autocheckpoint=4000");
    Do("PRAGMA cache_size=-524288");
    Do("PRAGMA mmap_size=17179869184");
    Do("PRAGMA temp_store=MEMORY");
  }
  void Do(const char* sql) {
    Check(sqlite3_exec(m_database, sql, nullptr, nullptr, nullptr), m_database, sql);
  }
  sqlite3* Handle() { return m_database; }

 private:
  struct Closer {
    void operator()(sqlite3* database) const { sqlite3_close_v2(database); }
  };
  sqlite3* m_database = nullptr;
  std::unique_ptr<sqlite3, Closer> m_closer;
};

// A bound text or blob is not copied: it must live until the statement has run.
struct Blob {
  const void* data;
  std::size_t size;
};
// The record without as many bytes as the row's columns take.
template <class Record>
Blob Rest(const Record& record, std::size_t inColumns) {
  return {reinterpret_cast<const char*>(&record) + inColumns, sizeof record - inColumns};
}

class Statement {
 public:
  Statement(Database& database, const char* sql) : m_database(database.Handle()) {
    sqlite3_stmt* statement = nullptr;
    Check(sqlite3_prepare_v3(m_database, sql, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr),
          m_database, sql);
    m_statement.reset(statement);
  }
  // Runs with the values to the end, or to the first row.
  template <class... Values>
  bool Start(const Values&... values) {
    int at = 0;
    (Bind(++at, values), ...);
    return Step();
  }
  bool Step() {
    const int code = sqlite3_step(m_statement.get());
    Check(code, m_database, sqlite3_sql(m_statement.get()));
    return code == SQLITE_ROW;
  }
  void End() { sqlite3_reset(m_statement.get()); }
  // Runs a change.
  template <class... Values>
  void Run(const Values&... values) {
    Start(values...);
    End();
  }
  // Runs a question for one number; missing when there is no row.
  template <class... Values>
  std::int64_t Ask(std::int64_t missing, const Values&... values) {
    const std::int64_t answer = Start(values...) ? Number(0) : missing;
    End();
    return answer;
  }
  std::int64_t Number(int column) { return sqlite3_column_int64(m_statement.get(), column); }
  std::string_view Text(int column) {
    const void* text = sqlite3_column_text(m_statement.get(), column);
    return {static_cast<const char*>(text),
            static_cast<std::size_t>(sqlite3_column_bytes(m_statement.get(), column))};
  }

 private:
  void Bind(int at, std::int64_t number) {
    Check(sqlite3_bind_int64(m_statement.get(), at, number), m_database, "bind");
  }
  void Bind(int at, std::string_view text) {
    Check(sqlite3_bind_text(m_statement.get(), at, text.data(), static_cast<int>(text.size()),
                            SQLITE_STATIC),
          m_database, "bind");
  }
  void Bind(int at, const Blob& blob) {
    Check(sqlite3_bind_blob(m_statement.get(), at, blob.data, static_cast<int>(blob.size),
                            SQLITE_STATIC),
          m_database, "bind");
  }

  struct Finalizer {
    void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
  };
  sqlite3* m_database;
  std::unique_ptr<sqlite3_stmt, Finalizer> m_statement;
};

// A connection of its own. One transaction serves many reads, since beginning one costs more than
// a read.
class SqliteReader final : public Reader {
 public:
  explicit SqliteReader(const std::string& path) : m_database(path, false) {}
  std::int32_t Flag(Id letter) override {
    constexpr int kReadsPerTransaction = 1000;
    if (m_left-- == 0) {
      if (sqlite3_get_autocommit(m_database.Handle()) == 0) m_commit.Run();
      m_begin.Run();
      m_left = kReadsPerTransaction - 1;
    }
    return static_cast<std::int32_t>(m_flag.Ask(0, letter));
  }

 private:
  Database m_database;
  Statement m_begin{m_database, "BEGIN"};
  Statement m_commit{m_database, "COMMIT"};
  Statement m_flag{m_database, "SELECT flag FROM letter WHERE id=?"};
  int m_left = 0;
};

class SqlitePeer final : public Peer {
 public:
  SqlitePeer(const std::string& directory, Promise promise)
      : m_directory(directory), m_database(Path(), promise == Promise::PowerSafe) {}

  void Begin() override { m_begin.Run(); }
  void Commit() override { m_commit.Run(); }

  Id AddFolder(const std::string& name) override {
    m_addFolder.Run(name);
    return LastId();
  }
  Id AddLetter(Id folder, std::size_t number) override {
    m_bytes.Become(number);
    const CMSDocumentData& document = m_bytes.document;
    const std::string_view subject = document.Name;
    const std::int32_t flag = document.Flag;
    m_addLetter.Run(folder, flag, document.CreationTime, subject,
                    Rest(document, 12 + subject.size()));
    const Id letter = LastId();
    for (const CMSAttachmentData& attachment : m_bytes.attachments)
      m_addAttachment.Run(letter, Rest(attachment, 4));
    for (const CMSRecipientData& recipient : m_bytes.recipients) {
      const std::string_view packet = recipient.TransEnvFileName;
      m_addRecipient.Run(letter, packet, Rest(recipient, 4 + packet.size()));
    }
    m_count.Run(1, Unreads(flag), folder);
    return letter;
  }
  Id AddLetterWithFiles(Id folder, std::size_t number, const std::string& /*source*/) override {
    WriteLetterFiles(m_directory, number);
    return AddLetter(folder, number);
  }
  void SetFlag(Id letter, std::int32_t flag) override { m_setFlag.Run(flag, letter); }
  void Move(Id letter, Id folder) override {
    Begin();
    const Place place = PlaceOf(letter);
    m_move.Run(folder, letter);
    m_count.Run(-1, -place.unread, place.folder);
    m_count.Run(1, place.unread, folder);
    Commit();
  }
  void Rename(const std::string& packet, const std::string& name) override {
    m_rename.Run(name, packet);
  }
  void Delete(Id letter) override {
    Begin();
    const Place place = PlaceOf(letter);
    m_deleteRecipients.Run(letter);
    m_deleteAttachments.Run(letter);
    m_deleteLetter.Run(letter);
    m_count.Run(-1, -place.unread, place.folder);
    Commit();
  }

  std::unique_ptr<Reader> NewReader() override { return std::make_unique<SqliteReader>(Path()); }
  std::string SubjectOf(Id letter) override {
    std::string subject(m_subject.Start(letter) ? m_subject.Text(0) : std::string_view());
    m_subject.End();
    return subject;
  }
  Listing List(Id folder) override {
    Listing listing;
    for (bool more = m_list.Start(folder); more; more = m_list.Step()) {
      ++listing.letters;
      listing.subjectBytes += m_list.Text(0).size();
      listing.flags += static_cast<std::uint64_t>(m_list.Number(1));
      listing.times += static_cast<std::uint64_t>(m_list.Number(2));
    }
    m_list.End();
    return listing;
  }
  Id FindPacket(const std::string& packet) override {
    return static_cast<Id>(m_find.Ask(kNone, packet));
  }
  std::uint32_t Unread(Id folder) override {
    return static_cast<std::uint32_t>(m_unread.Ask(0, folder));
  }

 private:
  struct Place {
    std::int64_t folder = 0;
    int unread = 0;
  };
  static int Unreads(std::int64_t flag) { return (flag & kUnreadBit) != 0 ? 1 : 0; }
  Place PlaceOf(Id letter) {
    if (!m_place.Start(letter)) throw std::runtime_error("sqlite: no such letter");
    const Place place{m_place.Number(0), Unreads(m_place.Number(1))};
    m_place.End();
    return place;
  }
  std::string Path() const { return CKitFile::Join(m_directory, "letters.sqlite"); }
  Id LastId() { return static_cast<Id>(sqlite3_last_insert_rowid(m_database.Handle())); }
  Statement Prepare(const char* sql) { return {m_database, sql}; }

  const std::string m_directory;
  Database m_database;
  const bool m_made = (m_database.Do(kSchema), true);  // before what is prepared
  Statement m_begin = Prepare("BEGIN IMMEDIATE");
  Statement m_commit = Prepare("COMMIT");
  Statement m_addFolder = Prepare("INSERT INTO folder(name,letters,unread) VALUES(?,0,0)");
  Statement m_addLetter =
      Prepare("INSERT INTO letter(folder,flag,time,subject,rest) VALUES(?,?,?,?,?)");
  Statement m_addAttachment = Prepare("INSERT INTO attachment(letter,rest) VALUES(?,?)");
  Statement m_addRecipient = Prepare("INSERT INTO recipient(letter,packet,rest) VALUES(?,?,?)");
  Statement m_count = Prepare("UPDATE folder SET letters=letters+?, unread=unread+? WHERE id=?");
  Statement m_setFlag = Prepare("UPDATE letter SET flag=? WHERE id=?");
  Statement m_move = Prepare("UPDATE letter SET folder=? WHERE id=?");
  Statement m_rename = Prepare("UPDATE recipient SET packet=? WHERE packet=?");
  Statement m_deleteLetter = Prepare("DELETE FROM letter WHERE id=?");
  Statement m_deleteAttachments = Prepare("DELETE FROM attachment WHERE letter=?");
  Statement m_deleteRecipients = Prepare("DELETE FROM recipient WHERE letter=?");
  Statement m_place = Prepare("SELECT folder, flag FROM letter WHERE id=?");
  Statement m_subject = Prepare("SELECT subject FROM letter WHERE id=?");
  Statement m_list = Prepare("SELECT subject, flag, time FROM letter WHERE folder=?");
  Statement m_find = Prepare("SELECT letter FROM recipient WHERE packet=?");
  Statement m_unread = Prepare("SELECT unread FROM folder WHERE id=?");
  LetterBytes m_bytes;
};

}  // namespace

std::unique_ptr<Peer> OpenSqlite(const std::string& directory, Promise promise) {
  return std::make_unique<SqlitePeer>(directory, promise);
}
