/* main.c - settings_cgi shows and changes the camera's settings for a web server.
 * doc/settings-web.md describes requests and answers. Who may ask at all is for the
 * web server to know. */
#include <string.h>

#include "settings_cgi.h"

/* One road for each method: fills `document`, or returns -1 with `fault` noted. */
static int do_get(const Request* request, mxml_node_t* document, Fault* fault) {
  return show(request->query, mxmlNewElement(document, "config"), fault);
}

static int do_post(const Request* request, mxml_node_t* document, Fault* fault) {
  if (comes_from_elsewhere(request))
    return refuse(fault, FORBIDDEN, "a page of another site may not change anything");
  if (request->query[0] != '\0') return refuse(fault, NOT_FOUND, "a change has no query");
  mxml_node_t* body = read_body(request, fault);
  if (body == NULL) return -1;
  forget_request();
  mxml_node_t* result = mxmlNewElement(document, "result");
  (void)add_error_attribute(result, "0", NULL);
  const int code = make_change(body, result, fault);
  del_tree(body);
  return code;
}

static int serve(const Request* request, mxml_node_t* document, Fault* fault) {
  if (request->path_info[0] != '\0')
    return refuse(fault, NOT_FOUND, "there is nothing at this path");
  if (strcmp(request->method, "POST") == 0) return do_post(request, document, fault);
  if (strcmp(request->method, "GET") == 0 || strcmp(request->method, "HEAD") == 0)
    return do_get(request, document, fault);
  return refuse(fault, BAD_METHOD, "settings are shown by GET and changed by POST");
}

int main(void) {
  const Request request = read_request();
  mxml_node_t* document = mxmlNewXML("1.0");
  Fault fault = {.code = DONE};
  if (serve(&request, document, &fault) == 0) {
    answer(&request, DONE, document);
  } else {
    answer_fault(&request, &fault);
  }
  del_tree(document);
  return 0;
}
