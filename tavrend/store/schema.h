#ifndef TAVREND_STORE_SCHEMA_H
#define TAVREND_STORE_SCHEMA_H

#include <string>

class Database;

/* Makes the tables of the state in a new database. One that has them is left as it is. Throws StoreError. */
void make_state(Database& database);

/*
 * Takes over the tables of an older version; an older program can do nothing with them from then on. Throws StoreError,
 * which names file, when the database is damaged or has no tables, a value in it has changed, or a newer version has
 * written it: nothing is changed then.
 */
void prepare_state(Database& database, const std::string& file);

#endif
