/* SPDX-License-Identifier: MIT */
/*
 * A queue and its worker: the threads of a daemon put jobs into a queue, and one thread takes them out.
 *
 * The queue has a lock of its own, and links the records of the daemon: it copies and allocates nothing.
 *
 * Build: cc -pthread -o queue_worker queue_worker.c $(pkg-config --cflags --libs kelo_utils)
 *
 * Prints:
 *   job 1: attach
 *   job 2: connect
 *   job 4: detach
 *   the worker has done 3 jobs, 0 are waiting
 */
#include <kelo_utils/queue.h>
#include <pthread.h>
#include <semaphore.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>

struct job {
  int number;
  const char* name; /* null ends the worker */
  q_link_type link;
};

static q_type jobs;
static sem_t waiting; /* counts what is in the queue, so that the worker can sleep */

static struct job* job_of(q_link_type* link) {
  return (struct job*)((char*)link - offsetof(struct job, link));
}

static struct job* new_job(int number, const char* name) {
  struct job* job = malloc(sizeof *job);
  if (job == NULL) abort();
  job->number = number;
  job->name = name;
  q_link(job, &job->link);
  return job;
}

static void put(struct job* job) {
  q_put(&jobs, &job->link);
  sem_post(&waiting);
}

static int has_number(q_link_type* link, const void* number) {
  return job_of(link)->number == *(const int*)number;
}

/* A job that nobody needs any more leaves the queue from any place. */
static void cancel(int number) {
  q_link_type* link = q_linear_search(&jobs, has_number, &number);
  if (link != NULL && q_delete_ext(&jobs, link) == 1) free(job_of(link));
}

static void* work(void* done) {
  for (;;) {
    while (sem_wait(&waiting) != 0) continue;
    q_link_type* link = q_get(&jobs); /* null when the job was cancelled */
    if (link == NULL) continue;
    struct job* job = job_of(link);
    if (job->name == NULL) {
      free(job);
      return NULL;
    }
    printf("job %d: %s\n", job->number, job->name);
    ++*(int*)done;
    free(job);
  }
}

int main(void) {
  pthread_t worker;
  int done = 0;
  q_init(&jobs);
  if (sem_init(&waiting, 0, 0) != 0) return EXIT_FAILURE;

  put(new_job(1, "attach"));
  put(new_job(2, "connect"));
  put(new_job(3, "scan"));
  put(new_job(4, "detach"));
  put(new_job(5, NULL));
  cancel(3); /* before the worker starts */

  if (pthread_create(&worker, NULL, work, &done) != 0) return EXIT_FAILURE;
  pthread_join(worker, NULL);
  printf("the worker has done %d jobs, %d are waiting\n", done, q_cnt(&jobs));
  q_destroy(&jobs);
  return EXIT_SUCCESS;
}
