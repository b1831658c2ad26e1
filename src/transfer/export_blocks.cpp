#include "transfer/export_blocks.h"

#include <system_error>

namespace tolma::transfer {

ExportBlocks::ExportBlocks(store::Connection& c, const std::string& query, bool aside) {
    if (aside) {
        try {
            auto reader = store::Connection::openReader(c.file());
            reader->beginReadingIn(c.shareReading());
            reader_ = std::move(reader);
        } catch (const std::exception&) {
            // No second connection to be had (the server's limit of them): the walk reads the
            // blocks itself, in turn with writing them.
            reader_.reset();
        }
    }
    store::Connection& from = reader_ ? *reader_ : c;
    selection_ = std::make_unique<SelectionScan>(from, query);
    nrColumn_ = selection_->column("betr-nr");
    for (Block& b : blocks_) {
        b.rows.resize(kBlock);
        b.scans = std::make_unique<ExportScans>(c, from);
    }
    if (!reader_) return;
    try {
        thread_ = std::thread([this] { read(); });
    } catch (const std::system_error&) {
        // No thread to be had: the walk reads on the reader's connection itself.
    }
}

ExportBlocks::~ExportBlocks() {
    stop();
    // The reader's statements end before its transaction does.
    for (Block& b : blocks_) b.scans.reset();
    selection_.reset();
    if (reader_) reader_->rollbackOpen();
}

void ExportBlocks::fill(Block& b) {
    b.size = 0;
    numbers_.clear();
    while (more_ && b.size < kBlock && (more_ = selection_->next())) {
        selection_->readRow(b.rows[b.size]);
        numbers_.push_back(b.rows[b.size][nrColumn_].toString());
        ++b.size;
    }
    if (b.size > 0) b.scans->readAhead(numbers_);
}

// Fills the blocks in turn, each as soon as the walk has written it, up to an empty one after
// the last.
void ExportBlocks::read() noexcept {
    try {
        for (size_t k = 0;; k ^= 1) {
            {
                std::unique_lock lock(m_);
                cv_.wait(lock, [&] { return stopping_ || state_[k] == State::Free; });
                if (stopping_) return;
            }
            fill(blocks_[k]);
            const bool last = blocks_[k].size == 0;
            {
                std::lock_guard lock(m_);
                state_[k] = State::Filled;
            }
            cv_.notify_all();
            if (last) return;
        }
    } catch (...) {
        std::lock_guard lock(m_);
        failure_ = std::current_exception();
        cv_.notify_all();
    }
}

const ExportBlocks::Block* ExportBlocks::next() {
    if (!thread_.joinable()) {
        fill(blocks_[0]);
        return blocks_[0].size > 0 ? &blocks_[0] : nullptr;
    }
    std::unique_lock lock(m_);
    // The block the walk has written is free for the next but one.
    if (State& written = state_[nextBlock_ ^ 1]; written == State::Taken) {
        written = State::Free;
        cv_.notify_all();
    }
    cv_.wait(lock, [&] { return state_[nextBlock_] == State::Filled || failure_; });
    if (state_[nextBlock_] != State::Filled) std::rethrow_exception(failure_);
    Block& b = blocks_[nextBlock_];
    if (b.size == 0) return nullptr;
    state_[nextBlock_] = State::Taken;
    nextBlock_ ^= 1;
    return &b;
}

void ExportBlocks::stop() noexcept {
    if (!thread_.joinable()) return;
    {
        std::lock_guard lock(m_);
        stopping_ = true;
    }
    cv_.notify_all();
    thread_.join();
}

}  // namespace tolma::transfer
