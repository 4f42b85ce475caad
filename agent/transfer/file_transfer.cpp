// Downloads, a thread each, and the table of uploads.
#include "transfer/file_transfer.h"

#include <map>
#include <mutex>
#include <utility>
#include <vector>

#include "net/thread_records.h"
#include "platform/files/file_system.h"
#include "platform/text.h"
#include "platform/threads/detached_thread.h"
#include "wire/big_endian.h"
#include "wire/json.h"

namespace vlk::agent {
namespace {

// The first backslash that can stand behind a folder's name: "C:\" comes before it.
constexpr std::size_t kFirstSeparator = 3;

struct DownloadJob {
  std::string path;  // UTF-8, as received
  std::uint32_t transfer_id = 0;
  SendCallable send;
  std::uint32_t session_id = 0;  // of every message of this transfer
};

std::mutex UploadTableMutex;  // guards UploadTable and the writes; nothing is locked inside it
std::map<std::uint32_t, UniqueStream> UploadTable;

void send_end(const DownloadJob& job, const JsonWriter& fields) {
  const std::string text = fields.finish();
  job.send(Msg::FileTransferEnd, job.session_id, reinterpret_cast<const unsigned char*>(text.data()),
           text.size(), kJsonPayload);
}

void run_download(const DownloadJob& job) {
  UniqueStream file = OpenFile(Utf8ToWide(job.path), L"rb");
  if (!file) {
    send_end(job, JsonWriter()
                      .add_int("transfer_id", job.transfer_id)
                      .add_bool("ok", false)
                      .add_string("error", "cannot open"));
    return;
  }
  // The header has its place in front of the file's bytes, so that nothing is copied to prepend it.
  std::vector<unsigned char> chunk(kChunkHeaderSize + kChunkSize);
  std::uint32_t index = 0;
  std::size_t count = 0;
  while ((count = std::fread(chunk.data() + kChunkHeaderSize, 1, kChunkSize, file.get())) > 0) {
    put_u32_be(chunk.data(), job.transfer_id);
    put_u32_be(chunk.data() + 4, index);
    if (!job.send(Msg::FileChunk, job.session_id, chunk.data(), kChunkHeaderSize + count, kBinaryPayload))
      return;
    ++index;
    // Deliberately the end of the file, even if it was a failure to read: that is reported as success.
    if (count < kChunkSize) break;
  }
  file.reset();
  send_end(job, JsonWriter().add_int("transfer_id", job.transfer_id).add_bool("ok", true));
}

}  // namespace

void StartDownload(std::uint32_t session_id, std::uint32_t transfer_id, std::string path, SendCallable send) {
  start_detached_thread([job = DownloadJob{std::move(path), transfer_id, std::move(send), session_id}] {
    const ThreadRecords records;
    run_download(job);
  });
}

void BeginUpload(std::uint32_t transfer_id, std::string_view path, std::int64_t /*size*/) {
  const std::wstring wide = Utf8ToWide(path);
  EnsureParentDirectories(wide);
  UniqueStream file = OpenFile(wide, L"wb");
  if (!file) return;
  const std::lock_guard<std::mutex> guard(UploadTableMutex);
  UniqueStream& entry = UploadTable[transfer_id];
  // An earlier file of this id stays open on purpose, until the process ends.
  (void)entry.release();
  entry = std::move(file);
}

void WriteUploadChunk(std::uint32_t transfer_id, const unsigned char* data, std::size_t size) {
  const std::lock_guard<std::mutex> guard(UploadTableMutex);
  const auto found = UploadTable.find(transfer_id);
  if (found == UploadTable.end()) return;
  // A full disk goes unnoticed on purpose: the transfer carries on.
  (void)std::fwrite(data, 1, size, found->second.get());
}

void EndUpload(std::uint32_t transfer_id) {
  const std::lock_guard<std::mutex> guard(UploadTableMutex);
  UploadTable.erase(transfer_id);
}

void EnsureParentDirectories(const std::wstring& path) {
  for (std::size_t i = kFirstSeparator; i < path.size(); ++i) {
    if (path[i] == L'\\') CreateFolder(path.substr(0, i));
  }
}

}  // namespace vlk::agent
