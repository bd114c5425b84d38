/* Writes what is in the stream to an SQLite database: each message once, by its "id", whatever is killed
 * when.
 *
 * usage: stream-to-sqlite URL DATABASE [STREAM]
 *
 * A batch is a transaction, and the stream hears of it only after that is on the disk. A batch that was
 * written and not acknowledged comes again, and then its ids are there already. Several of these may share
 * the work: they are one consumer of the stream. SIGINT and SIGTERM end it between two batches. */

#include <nats/nats.h>
#include <signal.h>
#include <sqlite3.h>
#include <stdbool.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

enum { batchSize = 500, batchTimeout = 1000 /* ms */, restAfterFailure = 1 /* s */ };
enum { longestWait = 10000, betweenAttempts = 50 /* ms, for a database that others use */ };

static const char *const consumerName = "stream-to-sqlite";
static volatile sig_atomic_t ended;

static void end(int number) {
  (void)number;
  ended = 1;
}

static bool complain(const char *what, const char *why) {
  fprintf(stderr, "stream-to-sqlite: %s: %s\n", what, why);
  return false;
}

static bool run(sqlite3 *database, const char *statement) {
  return sqlite3_exec(database, statement, NULL, NULL, NULL) == SQLITE_OK ||
         complain(statement, sqlite3_errmsg(database));
}

static bool insert(sqlite3 *database, sqlite3_stmt *insertion, natsMsg *message) {
  const char *id = NULL;
  const char *received = NULL;
  natsMsgHeader_Get(message, "Nats-Msg-Id", &id);
  natsMsgHeader_Get(message, "Kx-Received", &received);
  sqlite3_reset(insertion);
  sqlite3_bind_text(insertion, 1, id, -1, SQLITE_STATIC);
  sqlite3_bind_text(insertion, 2, received, -1, SQLITE_STATIC);
  sqlite3_bind_text(insertion, 3, natsMsg_GetSubject(message), -1, SQLITE_STATIC);
  sqlite3_bind_text(insertion, 4, natsMsg_GetData(message), natsMsg_GetDataLength(message), SQLITE_STATIC);
  return sqlite3_step(insertion) == SQLITE_DONE || complain("a message", sqlite3_errmsg(database));
}

/* All of the batch, or nothing. */
static bool write_batch(sqlite3 *database, sqlite3_stmt *insertion, const natsMsgList *batch) {
  bool fine = run(database, "BEGIN IMMEDIATE");
  for (int number = 0; fine && number < batch->Count; ++number) {
    fine = insert(database, insertion, batch->Msgs[number]);
  }
  sqlite3_reset(insertion);
  if (fine && run(database, "COMMIT")) return true;
  if (sqlite3_get_autocommit(database) == 0) run(database, "ROLLBACK");
  return false;
}

static void consume(natsSubscription *subscription, sqlite3 *database, sqlite3_stmt *insertion) {
  while (!ended) {
    natsMsgList batch = {0};
    const natsStatus status = natsSubscription_Fetch(&batch, subscription, batchSize, batchTimeout, NULL);
    if (status != NATS_OK && status != NATS_TIMEOUT) {
      complain("the stream", natsStatus_GetText(status));
      sleep(restAfterFailure);
    }
    if (batch.Count > 0 && write_batch(database, insertion, &batch)) {
      for (int number = 0; number < batch.Count; ++number) natsMsg_Ack(batch.Msgs[number], NULL);
    } else if (batch.Count > 0) {
      sleep(restAfterFailure); /* It comes again. */
    }
    natsMsgList_Destroy(&batch);
  }
}

/* Whoever has the file first turns the log on; of all statements it is this one that SQLite does not have
 * wait for the others. */
static bool log_ahead(sqlite3 *database) {
  const char *const statement = "PRAGMA journal_mode = WAL";
  for (int waited = 0; waited < longestWait; waited += betweenAttempts) {
    if (sqlite3_exec(database, statement, NULL, NULL, NULL) != SQLITE_BUSY) break;
    sqlite3_sleep(betweenAttempts);
  }
  return run(database, statement);
}

static bool open_database(const char *file, sqlite3 **database, sqlite3_stmt **insertion) {
  if (sqlite3_open(file, database) != SQLITE_OK) return complain(file, sqlite3_errmsg(*database));
  sqlite3_busy_timeout(*database, longestWait);
  return log_ahead(*database) && run(*database, "PRAGMA synchronous = FULL") &&
         run(*database,
             "CREATE TABLE IF NOT EXISTS messages (id TEXT PRIMARY KEY, received INTEGER, subject TEXT,"
             " message TEXT) WITHOUT ROWID") &&
         (sqlite3_prepare_v2(*database, "INSERT OR IGNORE INTO messages VALUES (?1, ?2, ?3, ?4)", -1,
                             insertion, NULL) == SQLITE_OK ||
          complain(file, sqlite3_errmsg(*database)));
}

static bool subscribe(const char *urls, const char *stream, natsConnection **connection, jsCtx **context,
                      natsSubscription **subscription) {
  natsOptions *options = NULL;
  jsSubOptions how;
  jsSubOptions_Init(&how);
  how.Stream = stream;
  how.Config.AckPolicy = js_AckExplicit;
  natsStatus status = natsOptions_Create(&options);
  if (status == NATS_OK) status = natsOptions_SetURL(options, urls);
  if (status == NATS_OK) status = natsOptions_SetMaxReconnect(options, -1);
  if (status == NATS_OK) status = natsConnection_Connect(connection, options);
  natsOptions_Destroy(options);
  if (status == NATS_OK) status = natsConnection_JetStream(context, *connection, NULL);
  if (status == NATS_OK) {
    status = js_PullSubscribe(subscription, *context, ">", consumerName, NULL, &how, NULL);
  }
  return status == NATS_OK || complain("the stream", natsStatus_GetText(status));
}

int main(int count, char **arguments) {
  if (count < 3 || count > 4) {
    fputs("usage: stream-to-sqlite URL DATABASE [STREAM]\n", stderr);
    return 2;
  }
  struct sigaction action = {0};
  action.sa_handler = end;
  sigaction(SIGINT, &action, NULL);
  sigaction(SIGTERM, &action, NULL);

  sqlite3 *database = NULL;
  sqlite3_stmt *insertion = NULL;
  natsConnection *connection = NULL;
  jsCtx *context = NULL;
  natsSubscription *subscription = NULL;
  const bool fine = open_database(arguments[2], &database, &insertion) &&
                    subscribe(arguments[1], count == 4 ? arguments[3] : "KX-MESSAGES", &connection, &context,
                              &subscription);
  if (fine) consume(subscription, database, insertion);
  natsSubscription_Destroy(subscription);
  jsCtx_Destroy(context);
  natsConnection_Destroy(connection);
  sqlite3_finalize(insertion);
  sqlite3_close(database);
  nats_CloseAndWait(0);
  return fine ? 0 : 1;
}
