#pragma once

#include <string>
#include <vector>

#include "transfer/element_reader.h"

namespace tolma::store {
class Connection;
}

namespace tolma::transfer {

// The numbers whose rows the elements of a block will remove, as Upd_3_Betr and Upd_4_Andere
// remove them; numbers the store cannot hold are left out.
struct BlockKeys {
    bool byState = false;  // businesses by number and state, not by number alone
    std::vector<std::pair<std::string, std::string>> states;  // betr-nr, betr-hist-nr
    std::vector<std::string> numbers;                         // betr-nr, for persons' permits
    std::vector<std::string> persons;                         // pers-nr
    // The states of the elements left as they stand: nothing of theirs is removed.
    std::vector<std::pair<std::string, std::string>> unchanged;
    bool empty() const { return states.empty() && numbers.empty() && persons.empty(); }
};

// Rows that a listener removed before a block's first element, by the numbers of its keys. The
// element that comes to remove them finds them gone and takes its number out; a number counts
// once, so when it comes again in the block its rows are the run's own and go as usual.
class RemovedAhead {
  public:
    virtual bool takeState(const std::string& betrNr, const std::string& betrHistNr) = 0;
    virtual bool takeNumber(const std::string& betrNr) = 0;
    virtual bool takePerson(const std::string& persNr) = 0;

  protected:
    ~RemovedAhead() = default;
};

// One block of the file as the driver stores it.
struct ImportBlock {
    long number = 0;  // counted from 1
    const std::vector<ReadElement>& elements;
    size_t read = 0;    // elements read: all, or up to the one under way when ESC came
    long replaced = 0;  // of them, businesses whose stored state they replaced
    long records = 0;   // businesses the run has stored so far, this block's included
    // Per element, whether it was left as it stands: its rows hold what it would write.
    std::vector<bool> unchanged;
};

// Hears what an import run does, in this order: the run starts; reading starts; the head; per block
// its beginning, its keys, its elements read, its commit ahead and done; the store compacted
// between blocks; the blocks done; the run ending; it ends, is cancelled or fails. The store is
// null while none is open. A listener that raises fails the run, except where it is said otherwise.
class ImportListener {
  public:
    virtual ~ImportListener() = default;

    // The file is named; nothing is asked or read yet.
    virtual void runStarts(const std::string& /*file*/) {}
    // The head of the file, up to its first <betrieb>, before its kind and version are checked.
    virtual void headRead(const std::string& /*head*/) {}
    // The consent is given and the file is open; no block is read yet.
    virtual void readingStarts(store::Connection* /*c*/) {}
    // The store's file is about to be compacted and replaced.
    virtual void compacting() {}
    // The block's transaction is open; nothing of it is stored or worked out yet.
    virtual void blockBegins(store::Connection* /*c*/, const ImportBlock& /*block*/) {}
    // Its keys are worked out, nothing of it is stored yet. A listener may remove the
    // keys' rows itself now and return what it removed; the block is then kept whole or not at
    // all.
    virtual RemovedAhead* blockKeys(store::Connection* /*c*/, const BlockKeys& /*keys*/) {
        return nullptr;
    }
    // Its elements are read, the transaction still open.
    virtual void blockRead(store::Connection* /*c*/, const ImportBlock& /*block*/) {}
    // Just before the block's commit, inside its transaction.
    virtual void blockCommitting(store::Connection* /*c*/, const ImportBlock& /*block*/) {}
    // The block's commit is done. A server stores a block while the next is worked out: there
    // this comes once the server has said so, within the next block (before its commit ahead)
    // or before the blocks are done. A commit that failed is never told so.
    virtual void blockCommitted(store::Connection* /*c*/, const ImportBlock& /*block*/) {}
    // Every block of the file is stored; the store is not yet compacted.
    virtual void blocksDone(store::Connection* /*c*/, long /*records*/) {}
    // Every run that does not fail, before the clerk is told how it ended.
    virtual void runEnding() {}
    // The end that every run not failed takes, after its closing message; once cancelled is
    // said, ends is not. A failed run hears runFailed once the store is bound again.
    virtual void runEnds(store::Connection* /*c*/) {}
    virtual void runCancelled(store::Connection* /*c*/) {}
    virtual void runFailed() {}
};

// What the clerk sees of an import while it runs. The driver says what to show, in its texts;
// the start window shows it, the command line writes its label on the terminal.
class ImportScreen {
  public:
    virtual ~ImportScreen() = default;
    // The run is being prepared: the text and the hourglass.
    virtual void preparing(const std::string& label) = 0;
    // The progress bar's range for what follows, at 0; shown with the next change.
    virtual void progressRange(int max) = 0;
    // The consent is given: the waiting picture takes the place of the lists.
    virtual void reading() = 0;
    // What happens now, with the bar as it stands.
    virtual void label(const std::string& text) = 0;
    // One more record stored.
    virtual void record(int value, const std::string& label) = 0;
    // The store changed under the screen (its kind was switched).
    virtual void refresh() = 0;
    // The run is over: the start picture with its text; after a failure the bar stays.
    virtual void ended(const std::string& label) = 0;
    virtual void failed(const std::string& label) = 0;
};

}  // namespace tolma::transfer
