// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/RefBase.h>

#include <map>
#include <utility>
#include <vector>

namespace client {

/**
 * What is known of the things of one service, and what of it is news.
 *
 * Notices and a list are two views of one thing that changes, and either may be the older one. While a list
 * is read, notices are kept; then for each thing the last notice counts, and the list where there is none:
 * the daemon changes its list before it sends a notice, so that what no notice speaks of is in the list as it
 * is.
 *
 * Under its owner's lock.
 *
 * @tparam Traits Record (an interface of records), Key, keyOf(), and isSame(), which tells a thing from
 * another one that took over its key
 */
template <typename Traits>
class Picture {
  public:
    using Record = android::sp<typename Traits::Record>;

    /** One thing told: the record that came, or the one that was told when the thing came. */
    struct Change {
        bool added;
        Record record;
    };
    using Changes = std::vector<Change>;

    /** A list is going to be read: notices are kept from now on. What was kept before is forgotten. */
    void beginReading() {
        mReading = true;
        mKept.clear();
    }

    /** The list cannot be read: what is known stands. */
    void giveUpReading() {
        mReading = false;
        mKept.clear();
    }

    /** Whether notices are kept. */
    bool isReading() const { return mReading; }

    /** @p record came or went. @return what is to be told */
    Changes notice(bool added, const Record& record) {
        Changes changes;
        if (mReading) {
            mKept.push_back({added, record});
        } else if (added) {
            add(record, changes);
        } else {
            remove(Traits::keyOf(*record), changes);
        }
        return changes;
    }

    /** The list was read. @return what is to be told: what went, then what came */
    Changes endReading(const std::vector<Record>& listed) {
        std::map<Key, Change> last;
        std::map<Key, bool> went;
        for (const Change& kept : mKept) {
            const Key key = Traits::keyOf(*kept.record);
            went[key] = went[key] || !kept.added;
            last[key] = kept;
        }
        std::map<Key, Record> there;
        std::vector<Key> order;
        for (const Record& record : listed) {
            const Key key = Traits::keyOf(*record);
            const auto kept = last.find(key);
            if (kept != last.end() && !kept->second.added) {
                continue;
            }
            // The list may be from before the notice, and from before what the notice tells took over the
            // key.
            if (there.emplace(key, kept == last.end() ? record : kept->second.record).second) {
                order.push_back(key);
            }
        }
        for (const Change& kept : mKept) {
            const Key key = Traits::keyOf(*kept.record);
            if (kept.added && last[key].added && there.emplace(key, last[key].record).second) {
                order.push_back(key);
            }
        }
        giveUpReading();

        Changes changes;
        for (auto known = mKnown.begin(); known != mKnown.end();) {
            const auto now = there.find(known->first);
            const auto gone = went.find(known->first);
            const bool stayed = now != there.end() && (gone == went.end() || !gone->second) &&
                                Traits::isSame(*known->second, *now->second);
            if (stayed) {
                ++known;
                continue;
            }
            changes.push_back({false, known->second});
            known = mKnown.erase(known);
        }
        for (const Key& key : order) {
            if (mKnown.emplace(key, there[key]).second) {
                changes.push_back({true, there[key]});
            }
        }
        return changes;
    }

    /** What is known, in ascending order of the keys. */
    std::vector<Record> known() const {
        std::vector<Record> records;
        for (const auto& [key, record] : mKnown) {
            records.push_back(record);
        }
        return records;
    }

  private:
    using Key = typename Traits::Key;

    void add(const Record& record, Changes& changes) {
        const Key key = Traits::keyOf(*record);
        const auto known = mKnown.find(key);
        if (known != mKnown.end()) {
            if (Traits::isSame(*known->second, *record)) {
                return;
            }
            remove(key, changes);
        }
        mKnown.emplace(key, record);
        changes.push_back({true, record});
    }

    void remove(const Key& key, Changes& changes) {
        const auto known = mKnown.find(key);
        if (known != mKnown.end()) {
            changes.push_back({false, known->second});
            mKnown.erase(known);
        }
    }

    std::map<Key, Record> mKnown;
    bool mReading = false;
    std::vector<Change> mKept;
};

}  // namespace client
