/**
 * Edits: several changes of a route's graph as one, without a gap in its sound.
 *
 *     vorn::Edit edit;
 *     const auto gain = edit.Insert("lnk_0", "libgain.so", {"-6"});
 *     edit.SetParameter(gain, "gain", {"-12"});
 *     const vorn::EditResult done = route->Execute(edit);
 *     if (!done.ok) std::puts(done.reason.c_str());
 *
 * An edit is carried out between two frame cycles, whole or not at all. Where any of it fails (a plug-in that does not
 * load, a link or a parameter that is refused, a block that does not start, a graph that would be incomplete, no
 * memory) the route goes on as if nobody had asked, and the result says why.
 *
 * Blocks that an edit does not add, delete or replace are neither stopped nor started. An endpoint that was linked and
 * is linked again by the same edit, with the same stream, has been linked all along: its block's hooks are not called,
 * and a frame that its reader has not taken waits in the link that leads there now. An edit gives no endpoint another
 * stream than it had: delete its link first.
 *
 * New blocks are made on the caller's thread, so that the route does not wait for it; they are linked and started on
 * the route's. Blocks that go are stopped, where they had been started, and deleted on the caller's thread, once nobody
 * else uses them.
 *
 * A route that is stopped is edited in the same way, and nothing is started. Where an edit mends an incomplete graph
 * whose route waits for that, all blocks start, or else the edit fails.
 */
#ifndef VORN_EDIT_H
#define VORN_EDIT_H

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include <vorn/Block.h>

namespace vorn {

class EditImpl;

/** What has become of an edit. */
struct EditResult {
  /** A block or a link. A pointer to what was deleted leads nowhere any more. */
  struct Item {
    std::string name;
    Block* block;  ///< Null for a link.
    Link* link;    ///< Null for a block.
  };

  bool ok = false;
  std::string reason;         ///< Why not, in words; empty where it was carried out.
  std::vector<Item> made;     ///< In the order of the steps: first the blocks, then the links.
  std::vector<Item> deleted;  ///< Links keep their names where they get another block at one end: they are in neither.
};

/** What to change, step by step. A step sees the graph as those before it leave it. Nothing happens before Execute. */
class VORN_API Edit {
 public:
  /** A block or a link of the route, by pointer or by name; or what a step of this edit makes. */
  class Instance {
   public:
    Instance(const Block* itsBlock) : pointer(itsBlock) {}
    Instance(const Link* itsLink) : pointer(itsLink) {}
    Instance(std::string itsName) : name(std::move(itsName)) {}
    Instance(const char* itsName) : name(itsName) {}

   private:
    friend class EditImpl;

    const void* pointer = nullptr;
    std::string name;
    std::size_t step = 0;  // of the edit, from 1; 0: none
  };

  using Texts = std::vector<std::string>;

  Edit();
  ~Edit();
  Edit(Edit&& other) noexcept;
  Edit& operator=(Edit&& other) noexcept;

  // As the operations of Route with these names. A link that is made anew between the same endpoints takes over what
  // waits there.

  Instance NewBlock(const std::string& soFileName, bool first, bool last, const Texts& args);
  Instance NewLink(unsigned int rate, SampleFormat format, unsigned int channels, long samplesPerFrame,
                   const Instance& source, std::size_t sourceBlkOutEpIdx, const Instance& sink,
                   std::size_t sinkBlkInEpIdx);
  void Delete(const Instance& instance);
  /**
   * @param parameter its number, or for a block of the kit its name.
   *
   * A new block is set before it starts. Others are set at last; where one refuses, those before it get the value back
   * that they gave to Route::GetParameter, and one that gives none keeps the new one.
   */
  void SetParameter(const Instance& block, const std::string& parameter, const Texts& values);

  /** A block into a link, whose stream it passes on: input 0 and output 0. @return the block, as all of these. */
  Instance Insert(const Instance& link, const std::string& soFileName, const Texts& args);
  /**
   * Takes a block out. Where one input and one output are linked, with equal streams, its neighbours are joined; what
   * the block itself holds goes with it. A source or a sink goes with its links, if that leaves its neighbours what
   * they need. All else is refused.
   */
  void Remove(const Instance& block);
  /** Another block in place of one: the same endpoints and streams, first or last as the old one. */
  Instance Replace(const Instance& block, const std::string& soFileName, const Texts& args);
  /**
   * A block (last, input 0) that gets what goes through a link as well. It hangs at an output of the tee that the link
   * comes from; where it comes from none, or from one without a free output, a tee is put into the link.
   */
  Instance Tap(const Instance& link, const std::string& soFileName, const Texts& args);

 private:
  friend class EditImpl;

  std::unique_ptr<EditImpl> impl;
};

}  // namespace vorn

#endif
