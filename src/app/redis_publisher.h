// The one-second timer that publishes three readings of the power board into the local Redis database.
#pragma once

struct ev_loop;
struct orb_application;

// Arms the timer (first after 1.0 s, then every 1.0 s). Start-up.
void start_redis_publisher(orb_application* application);

// The timer's work: sends "avr-voltage", "avr-temperature" and "orb-motor-type" over one fresh connection,
// given up after 0.05 s; publishes nothing while Redis is away or before there is a board. Never waits. Main
// thread.
void on_redis_timeout(struct ev_loop* loop, struct ev_timer* timer, int events);
