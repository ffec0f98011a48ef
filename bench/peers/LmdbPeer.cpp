// LMDB: records under integer keys that rise, so that they are appended; links and packet names in
// trees of their own, links as sorted duplicates of one length. Without a power-safe promise the
// map itself is written to and nothing is synced.
#include <lmdb.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <utility>
#include <vector>

#include "bench/peers/LetterBytes.h"
#include "bench/peers/Peer.h"
#include "kit/KitFile.h"

namespace {

// Of addresses, not of memory. A map that is written to makes the file as long while it is open.
constexpr std::size_t kMapBytes = std::size_t{1} << (sizeof(void*) > 4 ? 35 : 30);

void Check(int code, const char* what) {
  if (code != MDB_SUCCESS)
    throw std::runtime_error(std::string("lmdb: ") + what + ": " + mdb_strerror(code));
}

// Bytes that are only handed in; the interface has no const.
template <class T>
MDB_val Bytes(const T& value) {
  return {sizeof value, const_cast<T*>(&value)};
}
MDB_val PacketKey(const char* packet) {
  return {12, const_cast<char*>(packet)};
}
template <class T>
T As(const MDB_val& value) {
  T result;
  if (value.mv_size != sizeof result) throw std::runtime_error("lmdb: a value of another length");
  std::memcpy(&result, value.mv_data, sizeof result);
  return result;
}

class Transaction {
 public:
  Transaction(MDB_env* environment, unsigned flags) {
    Check(mdb_txn_begin(environment, nullptr, flags, &m_handle), "begin");
  }
  ~Transaction() {
    if (m_handle != nullptr) mdb_txn_abort(m_handle);
  }
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;

  void Commit() { Check(mdb_txn_commit(std::exchange(m_handle, nullptr)), "commit"); }
  // A reading one lets go of what it sees, so that writers may have its pages.
  void Reset() { mdb_txn_reset(m_handle); }
  // Sees what the store holds now.
  void Renew() { Check(mdb_txn_renew(m_handle), "renew"); }

  template <class Key>
  bool Get(MDB_dbi table, const Key& key, MDB_val& value) const {
    return Get(table, Bytes(key), value);
  }
  bool Get(MDB_dbi table, MDB_val key, MDB_val& value) const {
    const int code = mdb_get(m_handle, table, &key, &value);
    if (code != MDB_NOTFOUND) Check(code, "get");
    return code != MDB_NOTFOUND;
  }
  template <class Record>
  Record Read(MDB_dbi table, Id key) const {
    MDB_val value;
    if (!Get(table, key, value)) throw std::runtime_error("lmdb: no such record");
    return As<Record>(value);
  }
  void Put(MDB_dbi table, MDB_val key, MDB_val value, unsigned flags = 0) {
    Check(mdb_put(m_handle, table, &key, &value, flags), "put");
  }
  void Delete(MDB_dbi table, MDB_val key, MDB_val* value = nullptr) {
    Check(mdb_del(m_handle, table, &key, value), "delete");
  }
  MDB_txn* Handle() const { return m_handle; }

 private:
  MDB_txn* m_handle = nullptr;
};

class Cursor {
 public:
  Cursor(const Transaction& transaction, MDB_dbi table) {
    Check(mdb_cursor_open(transaction.Handle(), table, &m_handle), "cursor");
  }
  ~Cursor() { mdb_cursor_close(m_handle); }
  Cursor(const Cursor&) = delete;
  Cursor& operator=(const Cursor&) = delete;
  bool Go(MDB_val& key, MDB_val& value, MDB_cursor_op where) {
    const int code = mdb_cursor_get(m_handle, &key, &value, where);
    if (code != MDB_NOTFOUND) Check(code, "cursor");
    return code != MDB_NOTFOUND;
  }

 private:
  MDB_cursor* m_handle = nullptr;
};

// The numbers linked to a parent, page by page.
template <class Each>
void ForLinks(const Transaction& transaction, MDB_dbi links, Id parent, Each each) {
  Cursor cursor(transaction, links);
  MDB_val key = Bytes(parent), value;
  if (!cursor.Go(key, value, MDB_SET)) return;
  for (bool more = cursor.Go(key, value, MDB_GET_MULTIPLE); more;
       more = cursor.Go(key, value, MDB_NEXT_MULTIPLE)) {
    const auto* const numbers = static_cast<const Id*>(value.mv_data);
    for (std::size_t i = 0; i < value.mv_size / sizeof(Id); ++i) each(numbers[i]);
  }
}

// A reading transaction that lasts as long as this.
class Snapshot {
 public:
  explicit Snapshot(Transaction& transaction) : m_transaction(transaction) { transaction.Renew(); }
  ~Snapshot() { m_transaction.Reset(); }
  Snapshot(const Snapshot&) = delete;
  Snapshot& operator=(const Snapshot&) = delete;
  const Transaction& operator*() const { return m_transaction; }
  const Transaction* operator->() const { return &m_transaction; }

 private:
  Transaction& m_transaction;
};

struct FolderRow {
  std::uint32_t letters, unread;
};

class LmdbReader final : public Reader {
 public:
  LmdbReader(MDB_env* environment, MDB_dbi letters)
      : m_transaction(environment, MDB_RDONLY), m_letters(letters) {}
  std::int32_t Flag(Id letter) override {
    constexpr int kReadsPerTransaction = 1000;
    if (++m_reads % kReadsPerTransaction == 0) {
      m_transaction.Reset();
      m_transaction.Renew();
    }
    MDB_val value;
    if (!m_transaction.Get(m_letters, letter, value)) return 0;
    return static_cast<const CMSDocumentData*>(value.mv_data)->Flag;
  }

 private:
  Transaction m_transaction;
  const MDB_dbi m_letters;
  unsigned m_reads = 0;
};

class LmdbPeer final : public Peer {
 public:
  LmdbPeer(const std::string& directory, Promise promise) : m_directory(directory) {
    MDB_env* environment = nullptr;
    Check(mdb_env_create(&environment), "create");
    m_environment.reset(environment);
    Check(mdb_env_set_mapsize(environment, kMapBytes), "map");
    Check(mdb_env_set_maxdbs(environment, 8), "tables");
    // Readers belong to their transactions, so that one thread may have several.
    const unsigned flags = promise == Promise::None ? MDB_NOSYNC | MDB_WRITEMAP : 0;
    Check(mdb_env_open(environment, directory.c_str(), flags | MDB_NOTLS, 0600), "open");
    OpenTables();
    m_read = std::make_unique<Transaction>(environment, MDB_RDONLY);
    m_read->Reset();
  }
  ~LmdbPeer() override {
    MDB_envinfo info{};
    MDB_stat stat{};
    mdb_env_info(m_environment.get(), &info);
    mdb_env_stat(m_environment.get(), &stat);
    m_change.reset();
    m_read.reset();
    m_environment.reset();
    // The unused end of the file goes, so that copies of it are quick.
    std::error_code ignored;  // leaves the file long
    std::filesystem::resize_file(CKitFile::Join(m_directory, "data.mdb"),
                                 (info.me_last_pgno + 1) * stat.ms_psize, ignored);
  }
  LmdbPeer(const LmdbPeer&) = delete;
  LmdbPeer& operator=(const LmdbPeer&) = delete;

  void Begin() override { m_change = std::make_unique<Transaction>(m_environment.get(), 0); }
  void Commit() override {
    m_change->Commit();
    m_change.reset();
  }

  Id AddFolder(const std::string& /*name*/) override {
    Begin();
    const Id folder = ++m_lastId;
    m_change->Put(m_folders, Bytes(folder), Bytes(FolderRow{}), MDB_APPEND);
    Commit();
    return folder;
  }
  Id AddLetter(Id folder, std::size_t number) override {
    m_bytes.Become(number);
    m_bytes.document.ParentID = folder;
    const Id letter = ++m_lastId;
    m_change->Put(m_letters, Bytes(letter), Bytes(m_bytes.document), MDB_APPEND);
    m_change->Put(m_inFolder, Bytes(folder), Bytes(letter), MDB_APPENDDUP);
    for (CMSAttachmentData& attachment : m_bytes.attachments)
      AddChild(m_attachments, letter, attachment, 0);
    for (CMSRecipientData& recipient : m_bytes.recipients) {
      AddChild(m_recipients, letter, recipient, kRecipientBit);
      m_change->Put(m_packets, PacketKey(recipient.TransEnvFileName), Bytes(m_lastId));
    }
    Count(folder, 1, m_bytes.document.Flag);
    return letter;
  }
  Id AddLetterWithFiles(Id folder, std::size_t number, const std::string& /*source*/) override {
    WriteLetterFiles(m_directory, number);
    return AddLetter(folder, number);
  }
  void SetFlag(Id letter, std::int32_t flag) override {
    Begin();
    auto document = m_change->Read<CMSDocumentData>(m_letters, letter);
    document.Flag = flag;
    m_change->Put(m_letters, Bytes(letter), Bytes(document));
    Commit();
  }
  void Move(Id letter, Id folder) override {
    Begin();
    auto document = m_change->Read<CMSDocumentData>(m_letters, letter);
    Unlink(letter, document);
    document.ParentID = folder;
    m_change->Put(m_letters, Bytes(letter), Bytes(document));
    m_change->Put(m_inFolder, Bytes(folder), Bytes(letter));
    Count(folder, 1, document.Flag);
    Commit();
  }
  void Rename(const std::string& packet, const std::string& name) override {
    Begin();
    MDB_val found;
    if (!m_change->Get(m_packets, PacketKey(packet.c_str()), found))
      throw std::runtime_error("lmdb: no such packet name");
    const Id id = As<Id>(found);
    auto recipient = m_change->Read<CMSRecipientData>(m_recipients, id);
    std::memcpy(recipient.TransEnvFileName, name.c_str(), name.size() + 1);
    m_change->Put(m_recipients, Bytes(id), Bytes(recipient));
    m_change->Delete(m_packets, PacketKey(packet.c_str()));
    m_change->Put(m_packets, PacketKey(name.c_str()), Bytes(id));
    Commit();
  }
  void Delete(Id letter) override {
    Begin();
    std::vector<Id> children;
    ForLinks(*m_change, m_children, letter, [&](Id child) { children.push_back(child); });
    for (const Id child : children) DeleteChild(child);
    m_change->Delete(m_children, Bytes(letter));
    Unlink(letter, m_change->Read<CMSDocumentData>(m_letters, letter));
    m_change->Delete(m_letters, Bytes(letter));
    Commit();
  }

  std::unique_ptr<Reader> NewReader() override {
    return std::make_unique<LmdbReader>(m_environment.get(), m_letters);
  }
  std::string SubjectOf(Id letter) override {
    return Snapshot(*m_read)->Read<CMSDocumentData>(m_letters, letter).Name;
  }
  Listing List(Id folder) override {
    const Snapshot now(*m_read);
    Cursor letters(*now, m_letters);
    Listing listing;
    ForLinks(*now, m_inFolder, folder, [&](Id letter) {
      MDB_val key = Bytes(letter), value;
      if (!letters.Go(key, value, MDB_SET)) throw std::runtime_error("lmdb: a link to nothing");
      const auto& document = *static_cast<const CMSDocumentData*>(value.mv_data);
      ++listing.letters;
      listing.subjectBytes += std::strlen(document.Name);
      listing.flags += static_cast<std::uint64_t>(std::int32_t{document.Flag});
      listing.times += document.CreationTime;
    });
    return listing;
  }
  Id FindPacket(const std::string& packet) override {
    const Snapshot now(*m_read);
    MDB_val found, recipient;
    if (!now->Get(m_packets, PacketKey(packet.c_str()), found)) return kNone;
    if (!now->Get(m_recipients, As<Id>(found), recipient)) return kNone;
    return static_cast<const CMSRecipientData*>(recipient.mv_data)->DocID;
  }
  std::uint32_t Unread(Id folder) override {
    return Snapshot(*m_read)->Read<FolderRow>(m_folders, folder).unread;
  }

 private:
  // Children are linked as twice their ID, and one more for recipients.
  static constexpr Id kRecipientBit = 1;

  void OpenTables() {
    constexpr unsigned kRecords = MDB_CREATE | MDB_INTEGERKEY;
    constexpr unsigned kLinks = kRecords | MDB_DUPSORT | MDB_DUPFIXED | MDB_INTEGERDUP;
    Transaction opening(m_environment.get(), 0);
    const auto open = [&](const char* name, unsigned flags, MDB_dbi& table) {
      Check(mdb_dbi_open(opening.Handle(), name, flags, &table), name);
    };
    open("folders", kRecords, m_folders);
    open("letters", kRecords, m_letters);
    open("attachments", kRecords, m_attachments);
    open("recipients", kRecords, m_recipients);
    open("in_folder", kLinks, m_inFolder);
    open("children", kLinks, m_children);
    open("packets", MDB_CREATE, m_packets);
    for (const MDB_dbi table : {m_folders, m_letters, m_attachments, m_recipients}) {
      Cursor cursor(opening, table);
      MDB_val key, value;
      if (cursor.Go(key, value, MDB_LAST)) m_lastId = std::max(m_lastId, As<Id>(key));
    }
    opening.Commit();
  }
  template <class Record>
  void AddChild(MDB_dbi table, Id letter, Record& record, Id kind) {
    record.DocID = letter;
    const Id id = ++m_lastId;
    m_change->Put(table, Bytes(id), Bytes(record), MDB_APPEND);
    m_change->Put(m_children, Bytes(letter), Bytes(Id{id * 2 + kind}), MDB_APPENDDUP);
  }
  void DeleteChild(Id child) {
    const Id id = child / 2;
    if ((child & kRecipientBit) == 0) return m_change->Delete(m_attachments, Bytes(id));
    const auto recipient = m_change->Read<CMSRecipientData>(m_recipients, id);
    m_change->Delete(m_packets, PacketKey(recipient.TransEnvFileName));
    m_change->Delete(m_recipients, Bytes(id));
  }
  void Unlink(Id letter, const CMSDocumentData& document) {
    const Id folder = document.ParentID;
    MDB_val value = Bytes(letter);
    m_change->Delete(m_inFolder, Bytes(folder), &value);
    Count(folder, ~std::uint32_t{0}, document.Flag);
  }
  // Adds that many letters, modulo 2^32, with that flag to the folder's counts.
  void Count(Id folder, std::uint32_t letters, std::int32_t flag) {
    auto row = m_change->Read<FolderRow>(m_folders, folder);
    row.letters += letters;
    if ((flag & kUnreadBit) != 0) row.unread += letters;
    m_change->Put(m_folders, Bytes(folder), Bytes(row));
  }

  struct Closer {
    void operator()(MDB_env* environment) const { mdb_env_close(environment); }
  };
  const std::string m_directory;
  std::unique_ptr<MDB_env, Closer> m_environment;
  MDB_dbi m_folders = 0, m_letters = 0, m_attachments = 0, m_recipients = 0, m_inFolder = 0,
          m_children = 0, m_packets = 0;
  std::unique_ptr<Transaction> m_read, m_change;
  Id m_lastId = 0;
  LetterBytes m_bytes;
};

}  // namespace

std::unique_ptr<Peer> OpenLmdb(const std::string& directory, Promise promise) {
  return std::make_unique<LmdbPeer>(directory, promise);
}
