#!/usr/bin/env python3
"""A plain one-pass loader, the yardstick for the import's speed: reads a transfer file once and
inserts every element into the store's tables in one transaction, by its tag alone. None of the
import's rules (removals, cutting, dates, links of legal persons, logging) apply.
    python3 bench/plain_loader.py DATEI LEERE_DATENBANK
The store is changed in place: hand it a copy of an empty store (build/bin/tl_4x_b.mdb)."""
import sqlite3
import sys
import time

SECTIONS = {  # opening tag -> (table, closing tag)
    "adresse": "betrieb_adresse", "taetigkeit": "betrieb_taetigkeit",
    "b-erlaubnis": "betrieb_erlaubnis", "b-handwerkskarte": "betrieb_handwerkskarte",
    "meld-grund-sonst": "betrieb_meldgrundsonst", "person": "person",
    "staatsangehoerigkeit": "person_staatsang", "p-erlaubnis": "person_erlaubnis",
    "p-handwerkskarte": "person_handwerkskarte",
}
LINK = ("p-funktion", "p-eintr-datum", "p-austr-datum")


def main(path, store):
    start = time.perf_counter()
    db = sqlite3.connect(store, isolation_level=None)
    db.execute("PRAGMA journal_mode = WAL")
    db.execute("PRAGMA synchronous = NORMAL")
    columns = {t: {r[1] for r in db.execute(f"PRAGMA table_info([{t}])")}
               for t in ["betrieb", "beziehung_betrieb_person", *SECTIONS.values()]}
    statements = {}

    def insert(table, row):
        names = tuple(k for k in row if k in columns[table])
        key = (table, names)
        if key not in statements:
            statements[key] = (f"INSERT INTO [{table}] (" + ", ".join(f"[{n}]" for n in names) +
                               ") VALUES (" + ", ".join("?" * len(names)) + ")")
        db.execute(statements[key], [row[n] for n in names])

    db.execute("BEGIN")
    businesses = 0
    stack = []  # open sections: (table, row)
    business = None
    with open(path, encoding="cp1252", errors="replace") as f:
        for line in f:
            line = line.strip()
            if not line.startswith("<"):
                continue
            end = line.find(">")
            tag = line[1:end].split(" ")[0]
            if tag == "betrieb":
                business = {}
                continue
            if business is None:
                continue
            if tag == "/betrieb":
                insert("betrieb", business)
                businesses += 1
                business = None
                continue
            if tag in SECTIONS:
                row = {"betr-nr": business.get("betr-nr"), "betr-hist-nr": business.get("betr-hist-nr")}
                if stack and stack[-1][0] == "person":
                    row = {"pers-nr": stack[-1][1].get("pers-nr"), "betr-nr": business.get("betr-nr")}
                stack.append((SECTIONS[tag], row))
                continue
            if tag.startswith("/") and tag[1:] in SECTIONS:
                table, row = stack.pop()
                insert(table, row)
                if table == "person":
                    insert("beziehung_betrieb_person", {
                        "bez-betr-nr": business.get("betr-nr"),
                        "bez-betr-hist-nr": business.get("betr-hist-nr"),
                        "bez-pers-nr": row.get("pers-nr"),
                        **{k: row.get(k) for k in LINK}})
                continue
            close = line.find("</", end)
            if close < 0:
                continue
            (stack[-1][1] if stack else business)[tag] = line[end + 1:close]
    db.execute("COMMIT")
    seconds = time.perf_counter() - start
    print(f"{businesses} Betriebe in {seconds:.2f} s, {businesses / seconds:.0f} Betriebe/s")


if __name__ == "__main__":
    main(sys.argv[1], sys.argv[2])
