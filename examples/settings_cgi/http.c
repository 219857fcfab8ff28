/* http.c - the request as the web server hands it over, and the answer to it. */
#define _DEFAULT_SOURCE /* for -std=c99 */
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "settings_cgi.h"

#define LONGEST_BODY 20480 /* what load_tree_from_stdin takes */
#define BODY_WAIT_S 10

/* Indexed by FaultCode. */
static const char* const statuses[] = {
    [DONE] = "200 OK",
    [BAD_REQUEST] = "400 Bad Request",
    [BAD_DOCUMENT] = "400 Bad Request",
    [BAD_VALUE] = "422 Unprocessable Entity",
    [DUPLICATE] = "422 Unprocessable Entity",
    [TOO_MANY] = "422 Unprocessable Entity",
    [FORBIDDEN] = "403 Forbidden",
    [NOT_FOUND] = "404 Not Found",
    [BAD_METHOD] = "405 Method Not Allowed\r\nAllow: GET, HEAD, POST",
    [NO_LENGTH] = "411 Length Required",
    [TOO_LONG] = "413 Content Too Large",
    [TOO_SLOW] = "408 Request Timeout",
    [BUSY] = "503 Service Unavailable\r\nRetry-After: 5",
    [CANNOT_READ] = "500 Internal Server Error",
    [CANNOT_WRITE] = "500 Internal Server Error",
    [CANNOT_SAVE] = "500 Internal Server Error",
};

int refuse(Fault* fault, FaultCode code, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  fault->code = code;
  (void)vsnprintf(fault->text, sizeof fault->text, format, arguments);
  va_end(arguments);
  return -1;
}

/* ---- The request ------------------------------------------------------------ */

static const char* variable(const char* name) {
  const char* value = getenv(name);
  return value != NULL ? value : "";
}

Request read_request(void) {
  const Request request = {
      .method = variable("REQUEST_METHOD"),
      .path_info = variable("PATH_INFO"),
      .query = variable("QUERY_STRING"),
      .length = variable("CONTENT_LENGTH"),
      .origin = variable("HTTP_ORIGIN"),
      .host = variable("HTTP_HOST"),
  };
  return request;
}

void forget_request(void) {
  const char *path = getenv("PATH"), *zone = getenv("TZ");
  (void)clearenv();
  if (path != NULL) (void)setenv("PATH", path, 1);
  if (zone != NULL) (void)setenv("TZ", zone, 1);
}

bool comes_from_elsewhere(const Request* request) {
  const char* host = strstr(request->origin, "://");
  if (request->origin[0] == '\0') return false; /* no browser, or no other page */
  return host == NULL || strcmp(host + 3, request->host) != 0;
}

/* Runs when the body does not come, in the middle of reading it. */
static void give_up(int number) {
  static const char text[] =
      "Status: 408 Request Timeout\r\nContent-Type: text/xml; charset=utf-8\r\n"
      "Cache-Control: no-store\r\n\r\n"
      "<result errno=\"11\" errstr=\"the body did not come in time\"/>\n";
  (void)number;
  if (write(STDOUT_FILENO, text, sizeof text - 1) < 0) _exit(1);
  _exit(0);
}

static int check_length(const Request* request, Fault* fault) {
  if (request->length[0] == '\0') return refuse(fault, NO_LENGTH, "no Content-Length");
  if (request->length[strspn(request->length, "0123456789")] != '\0')
    return refuse(fault, BAD_REQUEST, "the Content-Length is no number");
  int length;
  if (!read_number(request->length, 0, LONGEST_BODY, &length))
    return refuse(fault, TOO_LONG, "a document has at most %d bytes", LONGEST_BODY);
  return length > 0 ? 0 : refuse(fault, BAD_DOCUMENT, "the document is empty");
}

mxml_node_t* read_body(const Request* request, Fault* fault) {
  if (check_length(request, fault) != 0) return NULL;
  (void)signal(SIGALRM, give_up);
  (void)alarm(BODY_WAIT_S);
  mxml_node_t* tree = load_tree_from_stdin();
  (void)alarm(0);
  if (tree == NULL) (void)refuse(fault, BAD_DOCUMENT, "the body is no whole XML document");
  return tree;
}

/* ---- The answer ------------------------------------------------------------- */

/* Whether an element holds elements: then each of them gets a line of its own. */
static bool is_branch(mxml_node_t* node) {
  mxml_node_t* child = mxmlGetFirstChild(node);
  return child != NULL && mxmlGetType(child) == MXML_ELEMENT;
}

/* What Mini-XML puts around a tag: a line of its own, two blanks for each level. */
static const char* spacing(mxml_node_t* node, int where) {
  static const char* const lines[] = {"\n", "\n  ", "\n    ", "\n      ", "\n        "};
  const size_t deepest = sizeof lines / sizeof lines[0] - 1;
  size_t depth = 0;
  mxml_node_t* above = mxmlGetParent(node);
  if (above == NULL) return NULL; /* the XML declaration */
  if (where != MXML_WS_BEFORE_OPEN && !(where == MXML_WS_BEFORE_CLOSE && is_branch(node)))
    return NULL;
  while ((above = mxmlGetParent(above)) != NULL && depth < deepest) ++depth;
  return lines[depth];
}

void answer(const Request* request, FaultCode code, mxml_node_t* document) {
  mxmlSetWrapMargin(0);
  char* body = mxmlSaveAllocString(document, spacing);
  if (body == NULL) {
    (void)printf("Status: %s\r\n\r\n", statuses[CANNOT_READ]);
    return;
  }
  (void)printf(
      "Status: %s\r\nContent-Type: text/xml; charset=utf-8\r\nContent-Length: %zu\r\n"
      "Cache-Control: no-store\r\nX-Content-Type-Options: nosniff\r\n\r\n",
      statuses[code], strlen(body));
  if (strcmp(request->method, "HEAD") != 0) (void)fputs(body, stdout);
  free(body);
}

void answer_fault(const Request* request, const Fault* fault) {
  mxml_node_t *document = mxmlNewXML("1.0"), *result = NULL;
  char number[12], text[sizeof fault->text];
  (void)snprintf(number, sizeof number, "%d", (int)fault->code);
  (void)snprintf(text, sizeof text, "%s", fault->text);
  (void)make_printable(text);
  if (write_to_xml(document, "/result", &result, NULL, 3) == 0)
    (void)add_error_attribute(result, number, text);
  answer(request, fault->code, document);
  del_tree(document);
}
