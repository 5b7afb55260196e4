// The messages of a thread's windows beside what else its event loop waits for: one loop a file, as
// docs/guides/progress.md shows them.
#pragma once

struct epoll_event;
class QObject;

void takeMessages();
void runOwnLoop();  // until PostQuitMessage

// `answer` gives false to end the loop.
void runPollLoop(int socket, bool (*answer)(int socket));
void runEpollLoop(int loop, bool (*answer)(const epoll_event& event));

unsigned watchMessages();  // for g_source_remove
void watchMessages(QObject* owner);
