// A record database of one record type.
#pragma once

#include "RecordFile.h"

template <class Key, class T>
class CMSDB : public CMSRecordFile {
  static_assert(sizeof(Key) >= sizeof(std::uint32_t));

 public:
  CMSDB(const CMSEngineContext& context, const std::string& directory, const std::string& name)
      : CMSRecordFile(context, directory, name, sizeof(T)) {}

  // A record for reading. It points into the mapped file: keep it short, and hold the database's
  // lock (Lock()) while other threads may change the record.
  class ReadPtr {
   public:
    ReadPtr(CMSRecordFile& file, std::uint32_t number, std::uint32_t key)
        : m_file(file), m_data(reinterpret_cast<const T*>(file.BeginRead(number, key))) {}
    ~ReadPtr() { m_file.EndRead(); }
    ReadPtr(const ReadPtr&) = delete;
    ReadPtr& operator=(const ReadPtr&) = delete;
    const T& operator*() const { return *m_data; }
    const T* operator->() const { return m_data; }

   private:
    CMSRecordFile& m_file;
    const T* m_data;
  };

  // A record for changing; flushed when it is let go.
  class WritePtr {
   public:
    WritePtr(CMSRecordFile& file, std::uint32_t number, std::uint32_t key,
             CMSRecordFile::Kind kind = CMSRecordFile::Kind::Primary)
        : m_file(file),
          m_number(number),
          m_kind(kind),
          m_data(reinterpret_cast<T*>(file.BeginWrite(number, key, kind))) {}
    // A flush that fails (level Immediate) must reach the caller, or a lost change would pass for a
    // stored one.
    ~WritePtr() noexcept(false) { m_file.EndWrite(m_number, m_kind); }
    WritePtr(const WritePtr&) = delete;
    WritePtr& operator=(const WritePtr&) = delete;
    T& operator*() const { return *m_data; }
    T* operator->() const { return m_data; }

   private:
    CMSRecordFile& m_file;
    std::uint32_t m_number;
    CMSRecordFile::Kind m_kind;
    T* m_data;
  };
};
