/**
 * @file TCMarshalable.h
 * The base class of records that the platform framework passes between processes.
 */
#ifndef KESTREL_TCMARSHALABLE_H
#define KESTREL_TCMARSHALABLE_H

/** Base class of marshalable records. Deleting a record through this class releases all of it. */
class TCMarshalable {
public:
  TCMarshalable() = default;
  /** Copies the record. */
  TCMarshalable(const TCMarshalable &) = default;
  /** Copies the record. @return this record */
  TCMarshalable &operator=(const TCMarshalable &) = default;
  virtual ~TCMarshalable() = default;
};

#endif
