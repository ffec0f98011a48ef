// A whole folder: its list, and its unread count.
#include <cstdint>

#include "bench/Register.h"
#include "bench/Stores.h"

namespace {

// What a window with the folder's letters shows.
void ListFolder(benchmark::State& state) {
  const PreparedStore& prepared = Prepared(LettersOf(state));
  CMSMessageStore store = OpenStore(prepared.directory.Path());
  const CMSFolder folder = LettersFolder(store);
  CMSDocument letter;
  for (auto _ : state) {
    for (auto place = folder.GetFirstDocumentPosition(); folder.GetNextDocument(letter, place);) {
      benchmark::DoNotOptimize(letter.Name());
      benchmark::DoNotOptimize(letter.Flag());
      benchmark::DoNotOptimize(letter.CreationTime());
    }
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

void UnreadCached(benchmark::State& state) {
  CMSMessageStore store = OpenStore(Prepared(LettersOf(state)).directory.Path());
  const CMSFolder folder = LettersFolder(store);
  for (auto _ : state) benchmark::DoNotOptimize(folder.GetUnreadDocumentCount());
}

// An entry that is no pair of numbers makes the folder count its letters.
void UnreadCounted(benchmark::State& state) {
  CMSMessageStore store = OpenStore(Prepared(LettersOf(state)).directory.Path());
  const CMSFolder folder = LettersFolder(store);
  const std::string key = std::to_string(folder.ID());
  for (auto _ : state) {
    state.PauseTiming();
    store.WriteCustomData("ExtraFolderData", key.c_str(), "");
    state.ResumeTiming();
    if (folder.GetUnreadDocumentCount() != static_cast<int>(state.range(0) / 2))
      state.SkipWithError("the unread count is wrong");
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

}  // namespace

void RegisterFolders() {
  AddForAllSizes("list_folder", ListFolder)->Unit(benchmark::kMillisecond);
  AddForAllSizes("unread/cached", UnreadCached);
  AddForAllSizes("unread/counted", UnreadCounted)->Unit(benchmark::kMillisecond);
}
