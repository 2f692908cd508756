#pragma once

namespace kalo::download {

/// Ends what a download left half done when it died without its last words: the progress file then
/// says "failed", or "finished" when the nodes had got all of it, and half-fetched files go. Does
/// nothing while somebody holds the patch lock, or when the last download ended in order. Cheap;
/// may run at any time.
/// @return whether there was something to end.
bool RecoverDownload();

/// Returns whether the last download failed or was cancelled after it had begun to hand patches to
/// nodes: some may have theirs, others not. A new download and a hand upload end this.
[[nodiscard]] bool IsLastDownloadBroken();

}  // namespace kalo::download
