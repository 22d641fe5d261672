#ifndef TAVREND_SERVICE_PROCEDURES_H
#define TAVREND_SERVICE_PROCEDURES_H

#include <rpc/rpc.h>

#include "archiver/desk.h"

/*
 * Answers one request of the daemon's protocol. Who may call what is decided before anything is decoded: root
 * everything, others what neither changes something nor shows the password.
 */
void answer_request(Desk& desk, svc_req* request, SVCXPRT* transport);

/* Loads tunables and command texts as they were kept. */
void load_kept_texts(Desk& desk);

#endif
